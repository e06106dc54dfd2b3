// A simulated desktop described in JSON, for tests that start a whole process.
#pragma once

#include "support/sim_desktop.h"

#include <string>
#include <string_view>

namespace tarnwick::testing {

// Fills the desktop from a description:
//   { "home": "/Users/tester", "trusted": true, "ownBundleID": "…" or null,
//     "date": "2026-01-05T10:00:00Z" or "now" (the clock's start),
//     "lostAt": 0.3 (virtual seconds after which the desktop is gone, as an X server that ended),
//     "frontmost": "<bundle id of a running app>", "files": ["/path", …],
//     "apps": [ { "bundleID", "bundlePath", "name", "policy": "regular|accessory|prohibited",
//                 "running": true, "hidden": false, "windows": [window…],
//                 "windowsOnLaunch": [window…], "launchDelay", "finishedAfter", "documentDelay",
//                 "launchFault": "none|refuse|hang", "scriptFault": "none|refuse|hang",
//                 "refusesDocuments": false }, … ] }
// A window: "title", "document", "subrole", "frame": [x, y, w, h], "minimized",
// "fullScreen", "listed", "appearsAfter", "tabs": […], "activeTab", "incognito",
// "folder", "tty", "shellDirectory". Every app is installed; running ones are
// started with their windows. Unknown keys are errors. False, with the reason
// in `error`, when the description cannot be used.
bool loadDesktop(SimDesktop& desktop, std::string_view json, std::string& error);

}  // namespace tarnwick::testing
