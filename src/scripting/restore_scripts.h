// Restore scripts: rebuild browser, Finder and terminal windows, and close blank browser windows.
#pragma once

#include "model/snapshot.h"

#include <functional>
#include <optional>
#include <string>

namespace tarnwick::Scripts {

// Each rebuilds one saved window; true when the script ran to a clean end or
// there was nothing to do (then nothing is run). A failure is logged by the runner.
bool restoreChromium(const std::string& bundleID, const ScriptedWindow& window);  // 60 s
bool restoreSafari(const ScriptedWindow& window);                                 // 60 s
bool restoreFinder(const ScriptedWindow& window);                                 // 20 s
bool restoreTerminal(const ScriptedWindow& window, bool reuseFrontWindow);        // 20 s
bool restoreITerm(const ScriptedWindow& window);                                  // 30 s

// Closes the browser's windows that hold one tab showing nothing worth keeping.
void closeBlankBrowserWindows(AppKind kind, const std::string& bundleID);

// Told what a window-opening script would open ("a window with 3 tabs").
using DryRun = std::function<void(const std::string& what)>;

// While one lives, on its thread, the functions above run nothing: each that
// would open a window tells the observer and answers as if it had, and no
// blank window is closed. For showing what a restore would do.
class DryRunScope {
public:
    explicit DryRunScope(DryRun observer);
    ~DryRunScope();
    DryRunScope(const DryRunScope&) = delete;
    DryRunScope& operator=(const DryRunScope&) = delete;

private:
    DryRun observer_;
    DryRun* previous_;
};

// The script texts; nothing when there is nothing to do.
std::optional<std::string> restoreChromiumScript(const std::string& bundleID, const ScriptedWindow& window);
std::optional<std::string> restoreSafariScript(const ScriptedWindow& window);
std::optional<std::string> restoreFinderScript(const ScriptedWindow& window);
std::optional<std::string> restoreTerminalScript(const ScriptedWindow& window, bool reuseFrontWindow);
std::string restoreITermScript(const ScriptedWindow& window, const std::string& homeDirectory);
std::string closeBlankBrowserWindowsScript(AppKind kind, const std::string& bundleID);

}  // namespace tarnwick::Scripts
