// Restore::appURL and Restore::ensureRunning: finding or launching an application.
#include "session/restore.h"

#include "session/bundle_path.h"
#include "store/log.h"

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
    Platform& desktop = platform();
    if (app.bundleID)
        for (const App& running : desktop.runningApplications(*app.bundleID))
            if (!desktop.appInfo(running).terminated) return Running{running, false};

    auto bundle = appURL(app);
    if (!bundle) {
        result.problems.push_back(app.name + ": app not found");
        return std::nullopt;
    }
    // The sink may run after we stopped waiting, so it owns its copy of the name.
    std::string prefix = "launch " + lastPathComponent(*bundle) + ": ";
    auto launched = desktop.openApplication(*bundle, launchAnswerTimeout,
                                            [prefix](const std::string& error) { log(prefix + error); });
    if (!launched) {
        result.problems.push_back(app.name + ": could not launch");
        return std::nullopt;
    }
    // Reaching the deadline is not an error: a slow app is still worth placing.
    double deadline = desktop.monotonicSeconds() + finishLaunchingTimeout;
    while (!desktop.appInfo(*launched).finishedLaunching && desktop.monotonicSeconds() < deadline)
        desktop.sleep(finishLaunchingPoll);
    result.launched += 1;
    return Running{*launched, true};
}

}  // namespace tarnwick::Restore
