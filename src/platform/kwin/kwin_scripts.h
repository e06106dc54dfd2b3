// The KWin scripts the backend runs, and the one answer a listing sends back.
#pragma once

#include "platform/kwin/kwin_bus.h"
#include "platform/platform.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick::KWin {

// What KWin says of one window it manages.
struct WindowFacts {
    std::string id;  // KWin's own identifier ("{uuid}"), stable while the window lives
    std::int32_t pid = 0;          // 0 where KWin does not know it (an X11 client that never says)
    std::uint32_t x11Window = 0;   // the X11 window of an XWayland client, 0 for Wayland ones
    std::string caption;
    std::string resourceClass;
    std::string resourceName;
    std::string desktopFile;       // the Wayland app id, or the desktop entry an X11 client names
    double x = 0, y = 0, width = 0, height = 0;  // the frame, in the desktop's coordinates
    double clientX = 0, clientY = 0, clientWidth = 0, clientHeight = 0;  // its client area, in the desktop's coordinates
    bool minimized = false;
    bool fullScreen = false;
    bool maximizedHorizontally = false;
    bool maximizedVertically = false;
    std::optional<std::int64_t> desktop;  // KWin's virtual desktop, counted from 1; -1 on all
    std::string output;  // the output (screen) it is on: its name, or on KWin 5 its index
    bool normal = false;
    bool dialog = false;
    bool transient = false;
    bool desktopPart = false;  // the desktop's own background, a panel or a dock
};

struct Listing {
    std::vector<WindowFacts> windows;  // in KWin's order
    std::optional<std::string> active; // the id of the active window
    std::vector<Output> outputs;       // in KWin's order; on KWin 5 without names
};

// The outputs' names by their geometry, from KWin's support information
// ("Screen 0:" … "Name: Virtual-0" … "Geometry: 0,0,1280x800"): a KWin 5
// script learns outputs by index only.
std::vector<Output> outputsDescribed(const std::string& supportInformation);

// Lists every window with its states and sends it all back in one call.
std::string listingScript(const ReplyAddress& to, const std::string& token);

// The same listing, kept loaded in KWin: it calls our method `to.next` with
// `label` and waits; each answer that is a token has the windows listed and
// sent back with it, an empty one only has it wait again, and an error ends
// it. Loading and starting a script costs KWin more than listing 30 windows
// does; this one is loaded once.
std::string residentListingScript(const ReplyAddress& to, const std::string& label);

// The listing a listing script sent; nothing when it does not parse.
std::optional<Listing> parseListing(const std::string& payload);

// One change to one window, applied in the order given.
struct Change {
    enum class Kind { desktop, frame, maximize, minimized, fullScreen, activate };
    std::string id;
    Kind kind = Kind::frame;
    std::int64_t desktop = 0;                 // desktop: KWin's number, -1 for all
    std::optional<double> x, y, width, height;  // frame: the parts written; the others stay
    bool vertically = false, horizontally = false;  // maximize: the state wanted on each axis
    bool on = false;                          // minimized, fullScreen
};

// Applies the changes, each to its window if it still exists, and answers
// "done". A frame is never written to a full-screen window: its frame is the
// screen's, and the one it returns to when it leaves full screen is its own.
std::string changeScript(const std::vector<Change>& changes, const ReplyAddress& to, const std::string& token);

// An empty script that only answers: the cost of a round trip through KWin's scripting.
std::string answerOnlyScript(const ReplyAddress& to, const std::string& token);

}  // namespace tarnwick::KWin
