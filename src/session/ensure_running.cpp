// Restore::appURL and Restore::ensureRunning: finding or launching an application.
#include "session/restore.h"

#include "model/printable.h"
#include "scripting/quoting.h"
#include "session/bundle_path.h"
#include "store/log.h"

#include <algorithm>

namespace tarnwick::Restore {

namespace {

constexpr double launchAnswerTimeout = 30.0;
constexpr double finishLaunchingTimeout = 20.0;
constexpr double finishLaunchingPoll = 0.25;

// A file the snapshot names that could be run: not a desktop entry, which is
// found by its identifier only (one named by path could be any file).
bool namesAProgram(const AppState& app) {
    return !app.bundleID && !app.bundlePath.empty() && !app.bundlePath.ends_with(".desktop") &&
           platform().fileExists(app.bundlePath);
}

// What the snapshot itself says to run for the app, which only a trusted
// snapshot may have: its command line, or an executable file it names; and the
// folder a terminal starts in, since what a folder holds (a repository's
// settings, a shell's per-folder files) runs in it too.
std::vector<std::string> trustNeeded(const AppState& app, bool runnable) {
    std::vector<std::string> needed;
    if (app.commandLine && !app.commandLine->empty())
        needed.push_back("the command line " + shellCommand(*app.commandLine));
    else if (runnable)
        needed.push_back("the program " + shellCommand({app.bundlePath}));
    if (app.workingDirectory) needed.push_back("the folder " + shellCommand({*app.workingDirectory}));
    return needed;
}

// What a launch starts, where the system checks nothing of it.
struct Start {
    std::string path;                                     // a desktop entry or an executable
    std::optional<std::vector<std::string>> commandLine;  // the words, in place of the entry's
    std::optional<std::string> folder;                    // where it starts
};

// Linux: a program is started through the desktop entry its identifier finds
// in the application folders, never through an entry a file names by path;
// what the snapshot itself says to run (a command line, an executable file)
// only when the snapshot is this user's own, and in the folder it names only
// then. Nothing, with the problem line, otherwise. Each fact is looked at
// once, so what is decided is what starts.
std::optional<Start> checkedStart(const AppState& app, bool trusted, Result& result) {
    auto refused = [&](const std::string& what) {
        result.problems.push_back(app.name + ": not started: " + what +
                                  " comes from a snapshot that Tarnwick did not save here (trust the snapshot to "
                                  "allow it)");
        return std::nullopt;
    };
    Start start;
    if (app.commandLine && !app.commandLine->empty()) {
        if (!trusted) return refused("the command line " + shellCommand(*app.commandLine));
        start = Start{app.bundleID ? platform().applicationPath(*app.bundleID).value_or(app.bundlePath)
                                   : app.bundlePath,
                      app.commandLine, std::nullopt};
    } else if (app.bundleID) {
        auto entry = platform().applicationPath(*app.bundleID);
        if (!entry) {
            result.problems.push_back(app.name + ": app not found");
            return std::nullopt;
        }
        start.path = *entry;
    } else {
        if (!namesAProgram(app)) {
            result.problems.push_back(app.name + ": app not found");
            return std::nullopt;
        }
        if (!trusted) return refused("the program " + shellCommand({app.bundlePath}));
        start.path = app.bundlePath;
    }
    if (app.workingDirectory && !trusted)
        result.problems.push_back(app.name + ": started in the home folder, not in " +
                                  shellCommand({*app.workingDirectory}) +
                                  ", which comes from a snapshot that Tarnwick did not save here (trust the snapshot "
                                  "to allow it)");
    else
        start.folder = app.workingDirectory;
    return start;
}

}  // namespace

std::optional<std::string> appURL(const AppState& app) {
    if (platform().fileExists(app.bundlePath)) return app.bundlePath;
    if (app.bundleID) return platform().applicationPath(*app.bundleID);
    return std::nullopt;
}

std::vector<std::string> startsNeedingTrust(const Snapshot& snapshot) {
    std::vector<std::string> starts;
    if (snapshot.trusted || platform().opensRecordedApplications()) return starts;
    const auto own = platform().ownBundleIdentifier();
    for (const AppState& app : snapshot.apps)
        if (app.bundleID != own)
            for (const std::string& needed : trustNeeded(app, namesAProgram(app)))
                starts.push_back(app.name + ": " + needed);
    return starts;
}

std::optional<Running> ensureRunning(const AppState& app, Result& result) {
    std::vector<std::int32_t> taken;
    return ensureRunning(app, result, taken);
}

std::optional<Running> ensureRunning(const AppState& app, Result& result, std::vector<std::int32_t>& taken,
                                     bool trusted) {
    Platform& desktop = platform();
    // Where each instance is recorded on its own, an instance an earlier record
    // of this restore took is not another record's.
    const bool separate = desktop.separateInstances();
    auto available = [&](const App& running) {
        AppInfo info = desktop.appInfo(running);
        return !info.terminated && (!separate || std::find(taken.begin(), taken.end(), info.pid) == taken.end());
    };
    auto take = [&](const App& running, bool launched) {
        if (separate) taken.push_back(desktop.appInfo(running).pid);
        return Running{running, launched};
    };
    auto firstAvailable = [&](const std::vector<App>& candidates) -> std::optional<App> {
        for (const App& running : candidates)
            if (available(running)) return running;
        return std::nullopt;
    };
    if (app.bundleID) {
        if (auto running = firstAvailable(desktop.runningApplications(*app.bundleID))) return take(*running, false);
    } else if (app.commandLine) {
        // A program known by no identifier is known by how it was started.
        if (auto running = firstAvailable(desktop.runningCommands(*app.commandLine))) return take(*running, false);
    }

    std::optional<std::string> bundle;
    std::optional<std::vector<std::string>> commandLine = app.commandLine;
    std::optional<std::string> folder = app.workingDirectory;
    if (desktop.opensRecordedApplications()) {
        bundle = appURL(app);
        if (!bundle) {
            result.problems.push_back(app.name + ": app not found");
            return std::nullopt;
        }
    } else {
        auto start = checkedStart(app, trusted, result);
        if (!start) return std::nullopt;
        bundle = std::move(start->path);
        commandLine = std::move(start->commandLine);
        folder = std::move(start->folder);
    }
    // The sink may run after we stopped waiting, so it owns its copy of the name.
    std::string prefix = "launch " + lastPathComponent(*bundle) + ": ";
    ErrorSink onError = [prefix](const std::string& error) { log(printable(prefix + error)); };
    auto launched = commandLine || folder
                        ? desktop.launch(LaunchRequest{*bundle, commandLine, folder},
                                         launchAnswerTimeout, onError)
                        : desktop.openApplication(*bundle, launchAnswerTimeout, onError);
    if (!launched) {
        result.problems.push_back(app.name + ": could not launch");
        return std::nullopt;
    }
    // Reaching the deadline is not an error: a slow app is still worth placing.
    double deadline = desktop.monotonicSeconds() + finishLaunchingTimeout;
    for (;;) {
        AppInfo info = desktop.appInfo(*launched);
        if (info.finishedLaunching || desktop.monotonicSeconds() >= deadline || desktop.desktopLost()) break;
        // A program that hands its work to an instance already running exits
        // at once; waiting for its window would be waiting for nothing.
        if (separate && info.terminated) break;
        desktop.sleep(finishLaunchingPoll);
    }
    result.launched += 1;
    // Programs end with their display; that is not this program's failure.
    if (separate && !desktop.desktopLost() && desktop.appInfo(*launched).terminated) {
        std::optional<App> receiver;
        if (app.bundleID) receiver = firstAvailable(desktop.runningApplications(*app.bundleID));
        if (!receiver) {
            result.problems.push_back(app.name + ": started, but ended before it showed a window");
            return std::nullopt;
        }
        return take(*receiver, true);
    }
    return take(*launched, true);
}

}  // namespace tarnwick::Restore
