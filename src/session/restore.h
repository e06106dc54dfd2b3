// Restore: putting a saved session back.
#pragma once

#include "model/snapshot.h"
#include "platform/platform.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwick::Restore {

// What a restore did, for its report.
struct Result {
    std::int64_t launched = 0;           // applications this run had to launch
    std::int64_t windows = 0;            // windows reopened or placed
    std::int64_t tabs = 0;               // browser tabs reopened
    std::vector<std::string> problems;  // one line per failure, in the order met
};

// A running application, and whether this run launched it.
struct Running {
    App app;
    bool launched = false;
};

// The problem line of a restore whose desktop went away (the X server ended):
// it stops there, and this is its last line.
inline constexpr std::string_view desktopLostProblem = "the display went away; the restore stopped there";

// Told one line per application ("Restoring 2/7: Safari") before anything is done for it.
using Progress = std::function<void(const std::string& text)>;

// Puts the snapshot back: every application running, its windows reopened or
// placed, hidden ones hidden again, the frontmost one activated. Blocks for as
// long as launches, scripts and window waits take; never on the main thread of
// the menu-bar application. Every failure is a problem line, never a stop;
// only a desktop that goes away stops it, with desktopLostProblem.
Result run(const Snapshot& snapshot, const Progress& progress);

// Where the application's bundle is: its recorded path while that exists,
// otherwise wherever its identifier is installed; nothing when neither.
std::optional<std::string> appURL(const AppState& app);

// The application running, launched without activating it when needed; nothing,
// with a problem line in `result`, when it cannot be had.
std::optional<Running> ensureRunning(const AppState& app, Result& result);
// The same within one restore, where the platform keeps instances separate:
// `taken` holds the pids earlier records of this restore took, and grows.
// `trusted` says whether the snapshot may have its recorded command lines and
// executable files started where the system checks nothing (Linux).
std::optional<Running> ensureRunning(const AppState& app, Result& result, std::vector<std::int32_t>& taken,
                                     bool trusted = true);

// What a restore of this snapshot would leave alone unless the user vouches
// for it: "NAME: the command line …", "NAME: the program …", "NAME: the folder
// …"; empty for a trusted snapshot and where the system checks what it opens.
std::vector<std::string> startsNeedingTrust(const Snapshot& snapshot);

// What a window placed under a window manager should show once the manager
// is done with it.
struct PlacedWindow {
    Element window;
    std::optional<Frame> frame;
    bool minimized = false;
};

// Puts the saved windows of a generic application back onto its live windows:
// waits for them, reopens missing documents, pairs by document, then title,
// then order, and sets frame, minimized and full screen. Counts placed windows;
// adds no problem lines. Under a window manager the placed windows are looked
// at again until they hold: at once, or, given `settleLater`, by the caller
// once every application is placed, so that one wait serves them all.
void restoreGeneric(const AppState& app, const App& running, bool launched, Result& result,
                    std::vector<PlacedWindow>* settleLater = nullptr);

// Looks at placed windows for a moment, and asks once more where a frame or
// minimized state did not hold: a window manager applies requests when it
// gets to them.
void settle(const std::vector<PlacedWindow>& placed);

// Where a recorded frame goes on the outputs of the moment: as it is while
// any output shows part of it; else wholly onto the output it was recorded
// on, when that one is still there, or the nearest one (a monitor unplugged
// since), made smaller only where that output is smaller. With no outputs
// known, as it is.
Frame ontoOutputs(const Frame& frame, const std::optional<std::string>& recorded, const std::vector<Output>& outputs);

// The application's windows once there are at least `expected`, or as they are
// when the time-out passes; polled every half second.

std::vector<Element> waitForWindows(std::int32_t pid, std::int64_t expected, double timeout);

// The file-system path a "file:" URL names; nothing for text that is not a
// well-formed URL, for other schemes and for files on another host.
std::optional<std::string> fileURLPath(std::string_view url);

}  // namespace tarnwick::Restore
