// Restore scripts: their texts and their runs.
#include "scripting/restore_scripts.h"

#include "scripting/quoting.h"
#include "scripting/runner.h"
#include "platform/platform.h"

namespace tarnwick::Scripts {

namespace {

// Sets the saved bounds; inside "try" so a refused resize does not fail the script.
// A frame no screen can show (a snapshot file may hold any number) is left out.
std::string boundsBlock(const ScriptedWindow& window, std::string_view target = "w") {
    if (!window.frame || !window.frame->placeable()) return {};
    return "try\nset bounds of " + std::string(target) + " to " + window.frame->appleScriptBounds() + "\nend try\n";
}

std::vector<std::string> nonEmpty(const TextList& items) {
    std::vector<std::string> result;
    for (std::string_view item : items)
        if (!item.empty()) result.emplace_back(item);
    return result;
}

// The command a new shell runs: go to the directory, then clear the screen.
std::string terminalCommand(std::string_view directory) { return asq("cd " + shq(directory) + " && clear"); }

thread_local DryRun* dryRun = nullptr;

bool run(const std::optional<std::string>& script, double timeout) {
    return !script || runAppleScript(*script, timeout).has_value();
}

// Runs the script, or under a dry run tells what it would open and answers as if it had.
bool open(const std::optional<std::string>& script, double timeout, const std::string& what) {
    if (dryRun != nullptr) {
        if (script) (*dryRun)(what);
        return true;
    }
    return run(script, timeout);
}

std::string itemCount(const ScriptedWindow& window) {
    return std::to_string(window.items.size()) + " tabs";
}

}  // namespace

DryRunScope::DryRunScope(DryRun observer) : observer_(std::move(observer)), previous_(dryRun) { dryRun = &observer_; }
DryRunScope::~DryRunScope() { dryRun = previous_; }

std::optional<std::string> restoreChromiumScript(const std::string& bundleID, const ScriptedWindow& window) {
    auto urls = nonEmpty(window.items);
    if (urls.empty()) return std::nullopt;
    std::string script = "tell application id " + asq(bundleID) + "\nset w to make new window\n" +
                         "set URL of active tab of w to " + asq(urls.front()) + "\n";
    for (size_t i = 1; i < urls.size(); ++i)
        script += "make new tab at end of tabs of w with properties {URL:" + asq(urls[i]) + "}\n";
    // The saved index counts the empty items too and is not clamped; the "try"
    // absorbs an index that is out of range.
    return script + boundsBlock(window) + "try\nset active tab index of w to " + std::to_string(window.activeIndex) +
           "\nend try\nend tell\n";
}

std::optional<std::string> restoreSafariScript(const ScriptedWindow& window) {
    auto urls = nonEmpty(window.items);
    if (urls.empty()) return std::nullopt;
    std::string script = "tell application id \"com.apple.Safari\"\nmake new document with properties {URL:" +
                         asq(urls.front()) + "}\nset w to front window\n";
    for (size_t i = 1; i < urls.size(); ++i)
        script += "tell w to make new tab at end of tabs with properties {URL:" + asq(urls[i]) + "}\n";
    return script + boundsBlock(window) + "try\nset current tab of w to tab " + std::to_string(window.activeIndex) +
           " of w\nend try\nend tell\n";
}

std::optional<std::string> restoreFinderScript(const ScriptedWindow& window) {
    if (window.items.empty()) return std::nullopt;
    return "tell application \"Finder\"\nset w to make new Finder window to (POSIX file " + asq(window.items.front()) +
           " as alias)\n" + boundsBlock(window) + "end tell\n";
}

std::optional<std::string> restoreTerminalScript(const ScriptedWindow& window, bool reuseFrontWindow) {
    if (window.items.empty()) return std::nullopt;
    // Terminal opens a window for "do script" by itself, so the bounds go to
    // whatever window is in front afterwards: the one just used or opened.
    return "tell application id \"com.apple.Terminal\"\ndo script " + terminalCommand(window.items.front()) +
           (reuseFrontWindow ? " in window 1" : "") + "\n" + boundsBlock(window, "front window") + "end tell\n";
}

std::string restoreITermScript(const ScriptedWindow& window, const std::string& homeDirectory) {
    std::vector<std::string> directories = window.items.strings();
    if (directories.empty()) directories.push_back(homeDirectory);
    std::string script =
        "tell application id \"com.googlecode.iterm2\"\nset w to (create window with default profile)\n"
        "tell current session of w to write text " +
        terminalCommand(directories.front()) + "\n";
    for (size_t i = 1; i < directories.size(); ++i)
        script += "tell w\nset t to (create tab with default profile)\nend tell\n"
                  "tell current session of t to write text " +
                  terminalCommand(directories[i]) + "\n";
    return script + boundsBlock(window) + "end tell\n";
}

std::string closeBlankBrowserWindowsScript(AppKind kind, const std::string& bundleID) {
    std::string url = kind == AppKind::safari ? "URL of current tab of w" : "URL of active tab of w";
    // The window list is taken once, so closing one does not upset the loop.
    return "tell application id " + asq(bundleID) + R"(
    repeat with w in (get windows)
        try
            if (count of tabs of w) is 1 then
                set u to )" + url +
           R"(
                if u is missing value or u is "" or u contains "://newtab" or u is "about:blank" or u starts with "favorites:" or u starts with "topsites:" then close w
            end if
        end try
    end repeat
end tell)";
}

bool restoreChromium(const std::string& bundleID, const ScriptedWindow& window) {
    return open(restoreChromiumScript(bundleID, window), 60, "a window with " + itemCount(window));
}

bool restoreSafari(const ScriptedWindow& window) {
    return open(restoreSafariScript(window), 60, "a window with " + itemCount(window));
}

bool restoreFinder(const ScriptedWindow& window) {
    std::string folder = window.items.empty() ? "" : std::string(window.items.front());
    return open(restoreFinderScript(window), 20, "a window of " + folder);
}

bool restoreTerminal(const ScriptedWindow& window, bool reuseFrontWindow) {
    std::string where = window.items.empty() ? "" : " in " + std::string(window.items.front());
    return open(restoreTerminalScript(window, reuseFrontWindow), 20, "a window" + where);
}

bool restoreITerm(const ScriptedWindow& window) {
    return open(restoreITermScript(window, platform().homeDirectory()), 30,
                "a window with " + std::to_string(window.items.size()) + " sessions");
}

void closeBlankBrowserWindows(AppKind kind, const std::string& bundleID) {
    // Closing windows that hold nothing is no change worth telling of.
    if (dryRun != nullptr) return;
    runAppleScript(closeBlankBrowserWindowsScript(kind, bundleID), 20);
}

}  // namespace tarnwick::Scripts
