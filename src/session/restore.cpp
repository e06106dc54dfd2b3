// Restore::run: every application of a snapshot back, by kind.
#include "session/restore.h"

#include "access/axo.h"
#include "model/printable.h"
#include "scripting/capture_scripts.h"
#include "scripting/restore_scripts.h"
#include "store/log.h"

#include <set>

namespace tarnwick::Restore {

namespace {

// Freshly launched apps need a moment before their scripting answers sensibly.
constexpr double terminalSettle = 1.5;
constexpr double browserSettle = 2.0;
// A launched program's first window, and windows asked of a running one.
constexpr double firstWindowWait = 12.0;
constexpr double newWindowWait = 10.0;

// The items the windows show, searched with a view of a saved item, which is not copied for it.
using Items = std::set<std::string, std::less<>>;
Items itemsOf(const std::optional<std::vector<ScriptedWindow>>& windows) {
    Items items;
    if (windows)
        for (const ScriptedWindow& window : *windows)
            for (std::string_view item : window.items) items.emplace(item);
    return items;
}

void restoreFinder(const AppState& app, Result& result) {
    Items open = itemsOf(Scripts::captureFinder());
    for (const ScriptedWindow& saved : app.scripted) {
        if (saved.items.empty()) continue;
        std::string path(saved.items.front());
        if (open.count(path)) continue;
        if (!platform().fileExists(path)) {
            result.problems.push_back("Finder: " + path + " no longer exists");
        } else if (Scripts::restoreFinder(saved)) {
            result.windows += 1;
        } else {
            result.problems.push_back("Finder: couldn't open " + path);
        }
    }
}

void restoreTerminal(const AppState& app, bool launched, Result& result) {
    if (launched) platform().sleep(terminalSettle);
    bool terminal = app.kind == AppKind::terminal;
    auto current = terminal ? Scripts::captureTerminal() : Scripts::captureITerm();
    Items open = itemsOf(current);
    // A Terminal we just launched shows one fresh window at home: the first
    // saved window goes into it instead of leaving it beside the restored ones.
    bool reuse = terminal && launched && current && current->size() == 1 &&
                 current->front().items == TextList{platform().homeDirectory()};
    for (const ScriptedWindow& saved : app.scripted) {
        bool reuseThis = reuse;
        reuse = false;
        if (!reuseThis) {
            if (saved.items.empty()) continue;
            bool allOpen = true;
            for (std::string_view item : saved.items) allOpen = allOpen && open.count(item) > 0;
            if (allOpen) continue;
        }
        bool opened = terminal ? Scripts::restoreTerminal(saved, reuseThis) : Scripts::restoreITerm(saved);
        if (opened)
            result.windows += 1;
        else
            result.problems.push_back(app.name + ": a window failed to open");
    }
}

void restoreBrowser(const AppState& app, bool launched, Result& result) {
    if (!app.bundleID) return;
    const std::string& bundleID = *app.bundleID;
    bool safari = app.kind == AppKind::safari;
    if (launched) platform().sleep(browserSettle);
    Items open = itemsOf(safari ? Scripts::captureSafari() : Scripts::captureChromium(bundleID));

    std::vector<const ScriptedWindow*> chosen;
    for (const ScriptedWindow& saved : app.scripted) {
        std::int64_t tabs = 0, alreadyOpen = 0;
        for (std::string_view item : saved.items) {
            if (item.empty()) continue;
            tabs += 1;
            alreadyOpen += open.count(item) > 0;
        }
        // Reopened only when fewer than half its tabs are open: exactly half counts as open.
        if (tabs > 0 && tabs > 2 * alreadyOpen) chosen.push_back(&saved);
    }
    if (chosen.empty()) return;

    Scripts::closeBlankBrowserWindows(app.kind, bundleID);
    for (const ScriptedWindow* saved : chosen) {
        bool opened = safari ? Scripts::restoreSafari(*saved) : Scripts::restoreChromium(bundleID, *saved);
        auto count = static_cast<std::int64_t>(saved->items.size());
        if (opened) {
            result.windows += 1;
            result.tabs += count;
        } else {
            result.problems.push_back(app.name + ": a window with " + std::to_string(count) +
                                      " tabs failed (check Automation permission)");
        }
    }
}

// Where one process holds several windows and each process is recorded on its
// own (X11), the process found or started may show fewer windows than were
// recorded: it is asked for the missing ones where its entry offers a way,
// and the rest are reported and left out, so that the placing does not wait
// for windows that cannot come.
AppState reachableWindows(const AppState& app, const Running& running, Result& result) {
    Platform& desktop = platform();
    if (app.windows.size() < 2 || !AXO::trusted()) return app;
    std::int32_t pid = desktop.appInfo(running.app).pid;
    const auto recorded = static_cast<std::int64_t>(app.windows.size());
    auto live = static_cast<std::int64_t>(waitForWindows(pid, 1, running.launched ? firstWindowWait : 0.0).size());
    if (live == 0 || live >= recorded) return app;
    std::string prefix = "new window of " + app.name + ": ";
    std::int64_t asked = 0;
    while (live + asked < recorded &&
           desktop.openNewWindow(running.app, [prefix](const std::string& error) { log(printable(prefix + error)); }))
        asked += 1;
    if (asked > 0) live = static_cast<std::int64_t>(waitForWindows(pid, live + asked, newWindowWait).size());
    if (live >= recorded) return app;
    for (std::int64_t missing = live; missing < recorded; ++missing)
        result.problems.push_back(asked > 0 ? app.name + ": a window failed to open"
                                            : app.name + ": a window could not be reopened (the program offers no "
                                                         "new-window action)");
    AppState reachable = app;
    reachable.windows.resize(static_cast<size_t>(live));
    return reachable;
}

}  // namespace

Result run(const Snapshot& snapshot, const Progress& progress) {
    Platform& desktop = platform();
    const std::optional<std::string> own = desktop.ownBundleIdentifier();
    std::vector<const AppState*> apps;
    // Never relaunch ourselves; two absent identifiers count as equal.
    for (const AppState& app : snapshot.apps)
        if (app.bundleID != own) apps.push_back(&app);

    Result result;
    std::vector<std::int32_t> taken;
    const std::string total = std::to_string(apps.size());
    for (size_t i = 0; i < apps.size(); ++i) {
        const AppState& app = *apps[i];
        if (progress) progress("Restoring " + std::to_string(i + 1) + "/" + total + ": " + app.name);
        auto running = ensureRunning(app, result, taken, snapshot.trusted);
        if (!running) continue;
        switch (app.kind) {
            case AppKind::generic:
                if (desktop.separateInstances())
                    restoreGeneric(reachableWindows(app, *running, result), running->app, running->launched, result);
                else
                    restoreGeneric(app, running->app, running->launched, result);
                break;
            case AppKind::finder: restoreFinder(app, result); break;
            case AppKind::terminal:
            case AppKind::iterm: restoreTerminal(app, running->launched, result); break;
            case AppKind::chromium:
            case AppKind::safari: restoreBrowser(app, running->launched, result); break;
        }
        if (app.hidden) desktop.hide(running->app);
    }

    if (snapshot.frontmost) {
        auto front = desktop.runningApplications(*snapshot.frontmost);
        if (!front.empty()) desktop.activate(front.front());
    }
    return result;
}

}  // namespace tarnwick::Restore
