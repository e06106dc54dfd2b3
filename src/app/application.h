// The menu-bar application's start on macOS.
#pragma once

namespace tarnwick::MenuBar {

// Starts the accessory application (no Dock icon, a status item only) and runs
// its event loop until it terminates; returns the exit status.
int runApplication();

}  // namespace tarnwick::MenuBar
