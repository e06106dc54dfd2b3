// Restore::appURL and Restore::ensureRunning: finding or launching an application.
#include "session/restore.h"

#include "session/bundle_path.h"
#include "store/log.h"

#include <algorithm>

namespace tarnwick::Restore {

namespace {

constexpr double launchAnswerTimeout = 30.0;
constexpr double finishLaunchingTimeout = 20.0;
constexpr double finishLaunchingPoll = 0.25;

}  // namespace

std::optional<std::string> appURL(const AppState& app) {
    if (platform().fileExists(app.bundlePath)) return app.bundlePath;
    if (app.bundleID) return platform().applicationPath(*app.bundleID);
    return std::nullopt;
}

std::optional<Running> ensureRunning(const AppState& app, Result& result) {
    std::vector<std::int32_t> taken;
    return ensureRunning(app, result, taken);
}

std::optional<Running> ensureRunning(const AppState& app, Result& result, std::vector<std::int32_t>& taken) {
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

    auto bundle = appURL(app);
    if (!bundle) {
        result.problems.push_back(app.name + ": app not found");
        return std::nullopt;
    }
    // The sink may run after we stopped waiting, so it owns its copy of the name.
    std::string prefix = "launch " + lastPathComponent(*bundle) + ": ";
    ErrorSink onError = [prefix](const std::string& error) { log(prefix + error); };
    auto launched = app.commandLine || app.workingDirectory
                        ? desktop.launch(LaunchRequest{*bundle, app.commandLine, app.workingDirectory},
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
