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

// Which recorded windows have a live window, by the placing's rules: its
// document, then its title, then the first live window left. Matches by
// document or title are made first, so that a window recorded earlier with no
// live counterpart never takes the live window a later one names.
enum class Pairing { none, named, first };
std::vector<Pairing> pairedWindows(const std::vector<WindowState>& recorded, std::vector<Element> live) {
    auto text = [](const Element& window, const char* name) -> std::optional<std::string> {
        auto value = AXO::attr(window, name);
        if (value && std::holds_alternative<std::string>(*value)) return std::get<std::string>(*value);
        return std::nullopt;
    };
    auto take = [&](const char* name, const std::string& wanted) {
        for (size_t i = 0; i < live.size(); ++i)
            if (text(live[i], name) == wanted) {
                live.erase(live.begin() + static_cast<std::ptrdiff_t>(i));
                return true;
            }
        return false;
    };
    std::vector<Pairing> paired(recorded.size(), Pairing::none);
    for (size_t i = 0; i < recorded.size(); ++i) {
        const WindowState& saved = recorded[i];
        if ((saved.document && take("AXDocument", *saved.document)) || (saved.title && take("AXTitle", *saved.title)))
            paired[i] = Pairing::named;
    }
    for (size_t i = 0; i < recorded.size() && !live.empty(); ++i)
        if (paired[i] == Pairing::none) {
            paired[i] = Pairing::first;
            live.erase(live.begin());
        }
    return paired;
}

// Where one process holds several windows and each process is recorded on its
// own (X11), the process found or started may show fewer windows than were
// recorded: the recorded windows that pair with none of its windows are asked
// for where its entry offers a way, and those that still have none are
// reported and left out, so that the placing does not wait for windows that
// cannot come, nor gives their frames to the windows that are there.
AppState reachableWindows(const AppState& app, const Running& running, Result& result) {
    Platform& desktop = platform();
    if (app.windows.size() < 2 || !AXO::trusted()) return app;
    std::int32_t pid = desktop.appInfo(running.app).pid;
    const auto recorded = static_cast<std::int64_t>(app.windows.size());
    auto live = waitForWindows(pid, 1, running.launched ? firstWindowWait : 0.0);
    if (live.empty() || static_cast<std::int64_t>(live.size()) >= recorded) return app;
    // Each live window pairs with one recorded window: the rest are missing.
    const std::int64_t wanted = recorded - static_cast<std::int64_t>(live.size());
    std::string prefix = "new window of " + app.name + ": ";
    std::int64_t asked = 0;
    while (asked < wanted &&
           desktop.openNewWindow(running.app, [prefix](const std::string& error) { log(printable(prefix + error)); }))
        asked += 1;
    if (asked > 0) live = waitForWindows(pid, static_cast<std::int64_t>(live.size()) + asked, newWindowWait);
    // Those a live window names go first, then those that take what is left
    // (the windows just asked for), so that the placing's own pairing, greedy
    // in this order, gives each the same window; those with none are left out.
    auto paired = pairedWindows(app.windows, live);
    AppState reachable = app;
    reachable.windows.clear();
    for (Pairing kind : {Pairing::named, Pairing::first})
        for (size_t i = 0; i < paired.size(); ++i)
            if (paired[i] == kind) reachable.windows.push_back(app.windows[i]);
    for (size_t i = 0; i < paired.size(); ++i)
        if (paired[i] == Pairing::none)
            result.problems.push_back(asked > 0 ? app.name + ": a window asked for did not appear"
                                                : app.name + ": a window could not be reopened (the program offers "
                                                             "no new-window action)");
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
    // Every application is placed before any is looked at again: a window
    // manager applies requests in its own time, and one wait serves them all.
    std::vector<PlacedWindow> placed;
    // A desktop that went away does not come back: nothing more can be placed.
    bool gone = false;
    auto stopHere = [&] { return gone || (gone = desktop.desktopLost()); };
    const std::string total = std::to_string(apps.size());
    for (size_t i = 0; i < apps.size(); ++i) {
        if (stopHere()) break;
        const AppState& app = *apps[i];
        if (progress) progress("Restoring " + std::to_string(i + 1) + "/" + total + ": " + app.name);
        auto running = ensureRunning(app, result, taken, snapshot.trusted);
        if (!running || stopHere()) continue;
        switch (app.kind) {
            case AppKind::generic:
                if (desktop.separateInstances())
                    restoreGeneric(reachableWindows(app, *running, result), running->app, running->launched, result,
                                   &placed);
                else
                    restoreGeneric(app, running->app, running->launched, result, &placed);
                break;
            case AppKind::finder: restoreFinder(app, result); break;
            case AppKind::terminal:
            case AppKind::iterm: restoreTerminal(app, running->launched, result); break;
            case AppKind::chromium:
            case AppKind::safari: restoreBrowser(app, running->launched, result); break;
        }
        if (app.hidden) desktop.hide(running->app);
    }
    if (!stopHere() && !placed.empty()) settle(placed);
    if (stopHere()) {
        result.problems.push_back(std::string(desktopLostProblem));
        return result;
    }

    if (snapshot.frontmost) {
        auto front = desktop.runningApplications(*snapshot.frontmost);
        if (!front.empty()) desktop.activate(front.front());
    }
    return result;
}

}  // namespace tarnwick::Restore
