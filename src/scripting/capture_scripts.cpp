// Capture scripts: their texts, their runs, and the terminal directory lookup.
#include "scripting/capture_scripts.h"

#include "scripting/listing.h"
#include "scripting/quoting.h"
#include "scripting/runner.h"

#include <array>

namespace tarnwick::Scripts {

namespace {

// The block every script prints per window: its bounds as "l;t;r;b" (empty when
// unreadable) and its active index (1 when unreadable), as one "W" line.
std::string windowHeader(std::string_view activeIndexExpression) {
    return R"(set bs to ""
try
    set b to bounds of w
    set bs to ((item 1 of b) as text) & ";" & ((item 2 of b) as text) & ";" & ((item 3 of b) as text) & ";" & ((item 4 of b) as text)
end try
set ai to 1
try
    set ai to )" + std::string(activeIndexExpression) +
           R"(
end try
set out to out & "W" & tb & bs & tb & (ai as text) & linefeed
)";
}

// Never launches the application just to find it has no windows.
std::string ifRunning(const std::string& bundleID, const std::string& body) {
    return "if application id " + asq(bundleID) + " is running then\ntell application id " + asq(bundleID) + "\n" +
           body + "end tell\nend if";
}

std::string_view trim(std::string_view s, std::string_view characters) {
    size_t first = s.find_first_not_of(characters);
    if (first == std::string_view::npos) return {};
    return s.substr(first, s.find_last_not_of(characters) - first + 1);
}

bool isShell(std::string_view command) {
    // The command may be a full path; a login shell is listed as "-zsh".
    while (command.size() > 1 && command.back() == '/') command.remove_suffix(1);
    if (size_t slash = command.rfind('/'); slash != std::string_view::npos) command.remove_prefix(slash + 1);
    command = trim(command, "-");
    static constexpr std::array<std::string_view, 6> shells{"zsh", "bash", "fish", "sh", "nu", "tcsh"};
    for (auto shell : shells)
        if (command == shell) return true;
    return false;
}

}  // namespace

std::string captureChromiumScript(const std::string& bundleID) {
    return ifRunning(bundleID, R"(    set out to ""
    repeat with w in windows
        try
            set skip to false
            try
                if mode of w is "incognito" then set skip to true
            end try
            if not skip then
                )" + windowHeader("active tab index of w") +
                                   R"(                repeat with t in tabs of w
                    set u to URL of t
                    if u is missing value then set u to ""
                    set out to out & "T" & tb & u & linefeed
                end repeat
            end if
        end try
    end repeat
    return out
)");
}

std::string captureSafariScript() {
    return ifRunning("com.apple.Safari", R"(    set out to ""
    repeat with w in windows
        try
            set ts to tabs of w
            )" + windowHeader("index of current tab of w") +
                                             R"(            repeat with t in ts
                set u to URL of t
                if u is missing value then set u to ""
                set out to out & "T" & tb & u & linefeed
            end repeat
        end try
    end repeat
    return out
)");
}

std::string captureFinderScript() {
    return R"(tell application "Finder"
    set out to ""
    repeat with w in Finder windows
        try
            set p to POSIX path of (target of w as alias)
            )" + windowHeader("1") +
           R"(            set out to out & "T" & tb & p & linefeed
        end try
    end repeat
    return out
end tell)";
}

std::string captureTerminalScript() {
    return ifRunning("com.apple.Terminal", R"(    set out to ""
    repeat with w in windows
        try
            set tt to tty of selected tab of w
            )" + windowHeader("1") +
                                               R"(            set out to out & "T" & tb & tt & linefeed
        end try
    end repeat
    return out
)");
}

std::string captureITermScript() {
    return ifRunning("com.googlecode.iterm2", R"(    set out to ""
    repeat with w in windows
        try
            )" + windowHeader("1") +
                                                  R"(            repeat with t in tabs of w
                set p to ""
                try
                    tell current session of t to set p to variable named "session.path"
                end try
                if p is missing value then set p to ""
                set out to out & "T" & tb & p & linefeed
            end repeat
        end try
    end repeat
    return out
)");
}

std::optional<std::vector<ScriptedWindow>> captureChromium(const std::string& bundleID) {
    return parseWindows(runAppleScript(captureChromiumScript(bundleID)));
}

std::optional<std::vector<ScriptedWindow>> captureSafari() { return parseWindows(runAppleScript(captureSafariScript())); }

std::optional<std::vector<ScriptedWindow>> captureFinder() { return parseWindows(runAppleScript(captureFinderScript())); }

std::optional<std::vector<ScriptedWindow>> captureITerm() { return parseWindows(runAppleScript(captureITermScript())); }

std::optional<std::vector<ScriptedWindow>> captureTerminal() {
    auto windows = parseWindows(runAppleScript(captureTerminalScript()));
    if (!windows) return std::nullopt;
    // The script can only say which tty each window shows; its shell says where it is.
    std::vector<ScriptedWindow> result;
    for (const auto& window : *windows)
        if (auto directory = cwdOfTTY(std::string(window.items.front())))
            result.push_back(ScriptedWindow{window.frame, {*directory}, 1});
    return result;
}

std::optional<std::string> shellPidFromPs(std::string_view psOutput) {
    for (std::string_view line : nonEmptyLines(psOutput)) {
        // Two columns: the number, then the command (which may hold spaces).
        std::string_view rest = line.substr(std::min(line.find_first_not_of(' '), line.size()));
        size_t space = rest.find(' ');
        if (space == std::string_view::npos) continue;
        std::string_view pid = trim(rest.substr(0, space), " \t");
        std::string_view command = trim(rest.substr(space + 1), " \t");
        if (pid.empty() || command.empty()) continue;
        if (isShell(command)) return std::string(pid);
    }
    return std::nullopt;
}

std::optional<std::string> cwdFromLsof(std::string_view lsofOutput) {
    for (std::string_view line : nonEmptyLines(lsofOutput))
        if (line.front() == 'n') return std::string(line.substr(1));
    return std::nullopt;
}

std::optional<std::string> cwdOfTTY(const std::string& tty) {
    // Every "/dev/" goes, in one pass from the left, as a plain replace-all does.
    std::string device;
    for (size_t from = 0;;) {
        size_t at = tty.find("/dev/", from);
        device.append(tty, from, at == std::string::npos ? std::string::npos : at - from);
        if (at == std::string::npos) break;
        from = at + 5;
    }
    Tools paths = tools();
    auto pid = shellPidFromPs(shell(paths.ps, {"-t", device, "-o", "pid=,comm="}));
    if (!pid) return std::nullopt;
    return cwdFromLsof(shell(paths.lsof, {"-a", "-p", *pid, "-d", "cwd", "-Fn"}));
}

}  // namespace tarnwick::Scripts
