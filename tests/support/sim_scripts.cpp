// SimDesktop as the script host: capture scripts answered from its windows,
// restore scripts carried out line by line, and ps and lsof for Terminal.
#include "support/sim_desktop.h"

#include "model/app_kind.h"
#include "scripting/capture_scripts.h"
#include "scripting/restore_scripts.h"

#include <charconv>
#include <cmath>

namespace tarnwick::testing {

namespace {

const std::string finderID = "com.apple.finder";

// Reads an AppleScript string literal ("…" with \" and \\ escapes) that makes up
// the whole text.
std::optional<std::string> stringLiteral(std::string_view text) {
    if (text.size() < 2 || text.front() != '"' || text.back() != '"') return std::nullopt;
    std::string value;
    for (size_t i = 1; i + 1 < text.size(); ++i) {
        char c = text[i];
        if (c == '"') return std::nullopt;
        if (c == '\\') {
            if (i + 2 >= text.size()) return std::nullopt;
            c = text[++i];
        }
        value += c;
    }
    return value;
}

// The text between `prefix` and `suffix` when the line is exactly that.
std::optional<std::string_view> between(std::string_view line, std::string_view prefix, std::string_view suffix) {
    if (line.size() < prefix.size() + suffix.size() || !line.starts_with(prefix) || !line.ends_with(suffix))
        return std::nullopt;
    return line.substr(prefix.size(), line.size() - prefix.size() - suffix.size());
}

std::optional<std::string> literalBetween(std::string_view line, std::string_view prefix, std::string_view suffix) {
    auto middle = between(line, prefix, suffix);
    if (!middle) return std::nullopt;
    return stringLiteral(*middle);
}

std::optional<std::int64_t> integer(std::string_view text) {
    std::int64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// "{l, t, r, b}" as a frame.
std::optional<Frame> boundsLiteral(std::string_view text) {
    if (text.size() < 2 || text.front() != '{' || text.back() != '}') return std::nullopt;
    text = text.substr(1, text.size() - 2);
    std::int64_t values[4];
    for (int i = 0; i < 4; ++i) {
        size_t comma = i < 3 ? text.find(", ") : text.size();
        if (comma == std::string_view::npos) return std::nullopt;
        auto value = integer(text.substr(0, comma));
        if (!value) return std::nullopt;
        values[i] = *value;
        text = i < 3 ? text.substr(comma + 2) : std::string_view();
    }
    return Frame{double(values[0]), double(values[1]), double(values[2] - values[0]), double(values[3] - values[1])};
}

// A number as AppleScript prints it: whole numbers without a fraction.
std::string numberText(double value) {
    if (std::nearbyint(value) == value && std::fabs(value) < 1e15) return std::to_string(static_cast<long long>(value));
    char buffer[64];
    auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
    return std::string(buffer, end);
}

std::string boundsText(const Frame& frame) {
    return numberText(frame.x) + ";" + numberText(frame.y) + ";" + numberText(frame.x + frame.w) + ";" +
           numberText(frame.y + frame.h);
}

// The directory of "cd '<dir>' && clear", with the shell's single quoting undone.
std::optional<std::string> cdTarget(std::string_view command) {
    auto word = between(command, "cd ", " && clear");
    if (!word) return std::nullopt;
    std::string directory;
    for (size_t i = 0; i < word->size();) {
        char c = (*word)[i];
        if (c == '\'') {
            size_t close = word->find('\'', i + 1);
            if (close == std::string_view::npos) return std::nullopt;
            directory.append(word->substr(i + 1, close - i - 1));
            i = close + 1;
        } else if (c == '\\' && i + 1 < word->size()) {
            directory += (*word)[i + 1];
            i += 2;
        } else {
            return std::nullopt;  // only quoted words are ever sent
        }
    }
    return directory;
}

bool blankPage(const std::string& url) {
    return url.empty() || url.find("://newtab") != std::string::npos || url == "about:blank" ||
           url.starts_with("favorites:") || url.starts_with("topsites:");
}

Scripts::Host::Run failure(std::string message) {
    Scripts::Host::Run run;
    run.exitStatus = 1;
    run.err = std::move(message) + "\n";
    return run;
}

// A script error, which a surrounding "try" absorbs.
struct ScriptError {
    std::string message;
};

std::string withoutTrailingSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

}  // namespace

int SimDesktop::scriptRunsOf(const std::string& kind) const {
    std::lock_guard guard(lock_);
    int count = 0;
    for (const SimScriptRun& run : scriptRuns) count += run.kind == kind;
    return count;
}

std::optional<std::int32_t> SimDesktop::scriptTarget(const std::string& bundleID) {
    for (auto pid : launchOrder_)
        if (SimApp* candidate = runningApp(pid); candidate && candidate->spec.bundleID == bundleID) return pid;
    return std::nullopt;
}

// Scripting lists windows front to back; the newest window is in front.
std::vector<std::uint64_t> SimDesktop::frontToBack(std::int32_t pid) {
    std::vector<std::uint64_t> ids;
    for (auto id : app(pid).windowIds)
        if (liveWindow(pid, id) != nullptr) ids.insert(ids.begin(), id);
    return ids;
}

std::uint64_t SimDesktop::openScriptedWindow(std::int32_t pid, SimWindow window) {
    return place(pid, std::move(window), now_);
}

// What the capture script of that kind prints for the application.
std::string SimDesktop::listing(std::int32_t pid, const std::string& kind) {
    std::string out;
    for (auto id : frontToBack(pid)) {
        const SimWindow& shown = windows_.at(id).window;
        std::vector<std::string> items;
        std::int64_t active = 1;
        if (kind == "captureChromium" || kind == "captureSafari") {
            if (shown.incognito && kind == "captureChromium") continue;
            items = shown.tabs;
            active = shown.activeTab;
        } else if (kind == "captureFinder") {
            if (!shown.folder) continue;
            items = {*shown.folder};
        } else if (kind == "captureTerminal") {
            if (!shown.tty) continue;
            items = {*shown.tty};
        } else {
            items = shown.tabs;
        }
        out += "W\t" + boundsText(shown.frame) + "\t" + std::to_string(active) + "\n";
        for (const auto& item : items) out += "T\t" + item + "\n";
    }
    return out;
}

Scripts::Host::Run SimDesktop::appleScript(std::string_view script, double timeout) {
    std::lock_guard guard(lock_);
    count("appleScript");
    SimScriptRun run{"unknown", "", std::string(script)};
    Run answer = interpret(script, run.kind, run.bundleID);
    if (answer.timedOut) now_ += timeout;
    journal.push_back("appleScript:" + run.kind + ":" + run.bundleID);
    scriptRuns.push_back(std::move(run));
    return answer;
}

Scripts::Host::Run SimDesktop::interpret(std::string_view script, std::string& kind, std::string& bundleID) {
    std::string_view firstLine = script.substr(0, script.find('\n'));

    // The application a script addresses, and the fault it answers with.
    auto faulted = [&](std::int32_t pid) -> std::optional<Run> {
        const SimAppSpec& spec = app(pid).spec;
        if (spec.scripts == ScriptFault::refuse)
            return failure("execution error: Not authorized to send Apple events to " + spec.name.value_or("it") +
                           ". (-1743)");
        if (spec.scripts == ScriptFault::hang) {
            Run hung;
            hung.timedOut = true;
            return hung;
        }
        return std::nullopt;
    };

    // Capture scripts, recognised by their whole text.
    if (auto id = literalBetween(firstLine, "if application id ", " is running then")) {
        bundleID = *id;
        if (script == Scripts::captureChromiumScript(*id)) kind = "captureChromium";
        else if (script == Scripts::captureSafariScript()) kind = "captureSafari";
        else if (script == Scripts::captureTerminalScript()) kind = "captureTerminal";
        else if (script == Scripts::captureITermScript()) kind = "captureITerm";
        else return failure("syntax error: the simulator does not know this script (-2741)");
        auto pid = scriptTarget(*id);
        if (!pid) return Run{};  // the guard: nothing printed for an application that is not running
        if (auto fault = faulted(*pid)) return *fault;
        return Run{false, 0, listing(*pid, kind), ""};
    }
    if (script == Scripts::captureFinderScript()) {
        kind = "captureFinder";
        bundleID = finderID;
        auto pid = scriptTarget(finderID);
        if (!pid) return failure("execution error: Finder got an error: Application isn’t running. (-600)");
        if (auto fault = faulted(*pid)) return *fault;
        return Run{false, 0, listing(*pid, kind), ""};
    }

    // Closing blank browser windows, recognised by its whole text.
    if (auto id = literalBetween(firstLine, "tell application id ", "")) {
        AppKind browser = classify(*id);
        if ((browser == AppKind::chromium || browser == AppKind::safari) &&
            script == Scripts::closeBlankBrowserWindowsScript(browser, *id)) {
            kind = "closeBlank";
            bundleID = *id;
            auto pid = scriptTarget(*id);
            if (!pid) return failure("execution error: Application isn’t running. (-600)");
            if (auto fault = faulted(*pid)) return *fault;
            for (auto windowId : frontToBack(*pid)) {
                Live& live = windows_.at(windowId);
                if (live.window.tabs.size() == 1 && blankPage(live.window.tabs.front())) live.closed = true;
            }
            return Run{};
        }
    }

    // Restore scripts: carried out statement by statement.
    std::vector<std::string_view> lines;
    for (size_t start = 0; start <= script.size();) {
        size_t end = script.find('\n', start);
        if (end == std::string_view::npos) end = script.size();
        std::string_view line = script.substr(start, end - start);
        size_t indent = line.find_first_not_of(' ');
        if (indent != std::string_view::npos) lines.push_back(line.substr(indent));
        start = end + 1;
    }

    enum class Block { tellApp, tellWindow, attempt };
    std::vector<Block> blocks;
    std::optional<std::int32_t> target;
    // Script variables: a window, or a window and the number of one of its tabs.
    std::map<std::string, std::pair<std::uint64_t, std::int64_t>> variables;

    auto need = [&](bool condition, const char* message) {
        if (!condition) throw ScriptError{message};
    };
    auto variable = [&](const std::string& name) -> SimWindow& {
        auto found = variables.find(name);
        need(found != variables.end(), "The variable is not defined. (-2753)");
        Live& live = windows_.at(found->second.first);
        need(!live.closed, "Invalid window reference. (-1728)");
        return live.window;
    };
    auto frontWindow = [&]() -> std::uint64_t {
        auto order = frontToBack(*target);
        need(!order.empty(), "Can’t get window 1. Invalid index. (-1719)");
        return order.front();
    };
    auto cd = [&](std::optional<std::string>& directory, const std::string& command) {
        auto wanted = cdTarget(command);
        // The shell runs the command; a cd into a missing folder leaves it where it was.
        if (wanted && (files_.count(*wanted) || files_.count(withoutTrailingSlash(*wanted)))) directory = *wanted;
    };
    auto bounds = [&](const std::string& text) {
        auto frame = boundsLiteral(text);
        need(frame.has_value(), "Can’t make the bounds into a rectangle. (-1700)");
        return *frame;
    };
    auto selectTab = [&](SimWindow& w, const std::string& number) {
        auto value = integer(number);
        need(value && *value >= 1 && *value <= std::int64_t(w.tabs.size()), "Invalid index. (-1719)");
        w.activeTab = *value;
    };
    auto newWindow = [&](std::vector<std::string> tabs) {
        SimWindow made;
        made.tabs = std::move(tabs);
        return openScriptedWindow(*target, std::move(made));
    };

    // The statement at hand, and the argument of the pattern it last matched.
    std::string_view line_;
    std::string arg;
    auto literal = [&](std::string_view prefix, std::string_view suffix) {
        auto value = literalBetween(line_, prefix, suffix);
        if (value) arg = *value;
        return value.has_value();
    };
    auto raw = [&](std::string_view prefix, std::string_view suffix) {
        auto value = between(line_, prefix, suffix);
        if (value) arg = std::string(*value);
        return value.has_value();
    };

    // Enters the application's tell block; a fault of that application ends the run.
    std::optional<Run> faultedRun;
    auto tellApplication = [&](const std::string& id, const char* notRunning) {
        if (blocks.empty()) kind = "restore", bundleID = id;
        target = scriptTarget(id);
        need(target.has_value(), notRunning);
        faultedRun = faulted(*target);
        blocks.push_back(Block::tellApp);
    };
    // The shell of the tab (counted from 1) runs the command.
    auto writeText = [&](SimWindow& w, std::int64_t tab) {
        std::optional<std::string> directory = w.tabs.at(size_t(tab - 1));
        cd(directory, arg);
        w.tabs[size_t(tab - 1)] = *directory;
    };

    for (size_t at = 0; at < lines.size(); ++at) {
        std::string_view line = line_ = lines[at];
        try {
            if (literal("tell application id ", "")) {
                tellApplication(arg, "Application isn’t running. (-600)");
            } else if (line == "tell application \"Finder\"") {
                tellApplication(finderID, "Finder got an error: Application isn’t running. (-600)");
            } else if (line == "tell w") {
                variable("w");
                blocks.push_back(Block::tellWindow);
            } else if (line == "end tell") {
                if (blocks.empty() || blocks.back() == Block::attempt) return failure("syntax error: unexpected end tell");
                blocks.pop_back();
            } else if (line == "try") {
                blocks.push_back(Block::attempt);
            } else if (line == "end try") {
                if (blocks.empty() || blocks.back() != Block::attempt) return failure("syntax error: unexpected end try");
                blocks.pop_back();
            } else if (!target) {
                return failure("syntax error: a command outside any tell block");
            } else if (line == "set w to make new window") {
                kind = "restoreChromium";
                variables["w"] = {newWindow({"chrome://newtab/"}), 0};
            } else if (literal("set URL of active tab of w to ", "")) {
                SimWindow& w = variable("w");
                need(w.activeTab >= 1 && w.activeTab <= std::int64_t(w.tabs.size()), "Invalid index. (-1719)");
                w.tabs[size_t(w.activeTab - 1)] = arg;
            } else if (literal("make new tab at end of tabs of w with properties {URL:", "}")) {
                SimWindow& w = variable("w");
                w.tabs.push_back(arg);
                w.activeTab = std::int64_t(w.tabs.size());  // Chromium shows a new tab at once
            } else if (raw("set bounds of w to ", "")) {
                variable("w").frame = bounds(arg);
            } else if (raw("set bounds of front window to ", "")) {
                windows_.at(frontWindow()).window.frame = bounds(arg);
            } else if (raw("set active tab index of w to ", "")) {
                selectTab(variable("w"), arg);
            } else if (literal("make new document with properties {URL:", "}")) {
                kind = "restoreSafari";
                newWindow({arg});
            } else if (line == "set w to front window") {
                variables["w"] = {frontWindow(), 0};
            } else if (literal("tell w to make new tab at end of tabs with properties {URL:", "}")) {
                variable("w").tabs.push_back(arg);  // Safari keeps the current tab
            } else if (raw("set current tab of w to tab ", " of w")) {
                selectTab(variable("w"), arg);
            } else if (literal("set w to make new Finder window to (POSIX file ", " as alias)")) {
                kind = "restoreFinder";
                need(files_.count(arg) || files_.count(withoutTrailingSlash(arg)),
                     "File wasn’t found. (-43)");
                SimWindow made;
                made.folder = arg;
                variables["w"] = {openScriptedWindow(*target, made), 0};
            } else if (literal("do script ", " in window 1")) {
                kind = "restoreTerminal";
                cd(windows_.at(frontWindow()).window.shellDirectory, arg);
            } else if (literal("do script ", "")) {
                kind = "restoreTerminal";
                SimWindow made;
                made.tty = "/dev/ttys" + std::to_string(100 + nextTty_++);
                made.shellDirectory = home;
                cd(made.shellDirectory, arg);
                openScriptedWindow(*target, made);
            } else if (line == "set w to (create window with default profile)") {
                kind = "restoreITerm";
                variables["w"] = {newWindow({home}), 1};
            } else if (line == "set t to (create tab with default profile)") {
                need(!blocks.empty() && blocks.back() == Block::tellWindow, "Can’t make a tab here. (-1708)");
                SimWindow& w = variable("w");
                w.tabs.push_back(home);
                w.activeTab = std::int64_t(w.tabs.size());
                variables["t"] = {variables["w"].first, w.activeTab};
            } else if (literal("tell current session of w to write text ", "")) {
                SimWindow& w = variable("w");
                writeText(w, w.activeTab);
            } else if (literal("tell current session of t to write text ", "")) {
                writeText(variable("t"), variables["t"].second);
            } else {
                return failure("syntax error: the simulator does not understand: " + std::string(line) + " (-2741)");
            }
            if (faultedRun) return *faultedRun;
        } catch (const ScriptError& error) {
            // The innermost "try" absorbs the error: carry on after its "end try".
            while (!blocks.empty() && blocks.back() != Block::attempt) blocks.pop_back();
            if (blocks.empty()) return failure("execution error: " + error.message);
            blocks.pop_back();
            int depth = 0;
            for (++at; at < lines.size(); ++at) {
                if (lines[at] == "try") ++depth;
                else if (lines[at] == "end try" && depth-- == 0) break;
            }
        }
    }
    if (!blocks.empty()) return failure("syntax error: a block is not closed");
    return Run{};
}

std::string SimDesktop::tool(const std::string& path, const std::vector<std::string>& arguments) {
    std::lock_guard guard(lock_);
    std::string name = path.substr(path.find_last_of('/') + 1);
    count("tool:" + name);
    // Each Terminal window's shell has its own process number.
    auto shellPid = [](std::uint64_t windowId) { return std::to_string(30000 + windowId); };
    for (auto& [id, live] : windows_) {
        if (live.closed || runningApp(live.pid) == nullptr || !live.window.tty || !live.window.shellDirectory)
            continue;
        if (name == "ps" && arguments.size() == 4 && arguments[0] == "-t" &&
            "/dev/" + arguments[1] == *live.window.tty && arguments[2] == "-o" && arguments[3] == "pid=,comm=")
            return "  " + shellPid(id) + " login\n  " + shellPid(id) + " -zsh\n";
        if (name == "lsof" && arguments == std::vector<std::string>{"-a", "-p", shellPid(id), "-d", "cwd", "-Fn"})
            return "p" + shellPid(id) + "\nfcwd\nn" + *live.window.shellDirectory + "\n";
    }
    return "";
}

ScopedScripts::ScopedScripts(Scripts::Host& host) { Scripts::setHostForTesting(&host); }

ScopedScripts::~ScopedScripts() { Scripts::setHostForTesting(nullptr); }

}  // namespace tarnwick::testing
