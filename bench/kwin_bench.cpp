// KWin backend benchmarks on a headless KWin: a capture of 30 windows (20
// XWayland, 10 Wayland-native) beside the bare cost of loading and running an
// empty script that answers, in one run. Skipped where KWin cannot start.
//
// A capture lists the windows afresh only once the last listing is 50 ms old,
// so each capture round follows a pause, as a capture by timer or by hand
// does. Everything is measured after that pause ("afterPause") and as KWin
// answers at its quickest ("backToBack"): the reference scripts one right
// after the other, a capture right after an untimed listing.
#include "platform/kwin/kwin_bus.h"
#include "platform/kwin/kwin_platform.h"
#include "platform/kwin/kwin_scripts.h"
#include "session/capture.h"
#include "session/restore.h"
#include "support/kwin_session.h"
#include "support/virtual_display.h"

#include <benchmark/benchmark.h>

#include <functional>
#include <map>
#include <thread>
#include <memory>

namespace tarnwick {
namespace {

constexpr int windowCount = 30;
constexpr int waylandCount = 10;

using testing::KWinBuild;

// One KWin for every benchmark of a build, with its 30 windows, started at
// first use; a session sets the environment while it lives, so the other
// build's ends first, and the benchmarks run one build after the other.
testing::KWinSession* session(KWinBuild build) {
    static std::map<KWinBuild, std::unique_ptr<testing::KWinSession>> shared;
    auto& kwin = shared[build];
    if (!kwin) {
        // Sessions set the environment for as long as they live: the other one goes first.
        shared.erase(build == KWinBuild::installed ? KWinBuild::debian13 : KWinBuild::installed);
        kwin = std::make_unique<testing::KWinSession>(build);
        if (kwin->running()) {
            for (int i = 0; i < windowCount - waylandCount; ++i) kwin->start("xlogo", {});
            for (int i = 0; i < waylandCount; ++i) kwin->start("weston-terminal", {});
            if (!testing::eventually([&] { return kwin->windows().size() >= windowCount; }, 60.0)) std::abort();
        }
    }
    return kwin->running() ? kwin.get() : nullptr;
}

// The KWin backend on the build's session, installed while it lives.
struct InstalledBackend {
    explicit InstalledBackend(KWinBuild build) : kwin(session(build)) {
        if (kwin == nullptr) return;
        std::string why;
        backend = openKWinPlatform(why);
        if (!backend) std::abort();
        previous = installPlatform(backend.get());
    }
    ~InstalledBackend() {
        if (backend) installPlatform(previous);
    }
    InstalledBackend(const InstalledBackend&) = delete;
    InstalledBackend& operator=(const InstalledBackend&) = delete;

    testing::KWinSession* kwin;
    std::unique_ptr<Platform> backend;
    Platform* previous = nullptr;
};

// How rounds follow each other: after a pause, as a capture by timer or by
// hand does, or back to back, as quick as KWin can be.
enum class Rounds { afterPause, backToBack };

// How long KWin has to answer a round.
constexpr auto answerWithin = std::chrono::milliseconds(3000);

// The pause a capture round follows: the listing it finds has lapsed by then.
constexpr auto roundPause = std::chrono::milliseconds(60);

void pauseBetween(benchmark::State& state, Rounds rounds) {
    if (rounds == Rounds::backToBack) return;
    state.PauseTiming();
    std::this_thread::sleep_for(roundPause);
    state.ResumeTiming();
}

// A capture as a running Tarnwick makes it: bus and desktop entries already
// there. It lists afresh only once the last listing has lapsed, so each round
// follows the pause; "backToBack" rounds then have KWin list the windows once
// more, untimed and on a bus of their own, so that KWin, the bus and this
// process are as awake as back-to-back reference rounds find them.
void CaptureThirtyWindows(benchmark::State& state, KWinBuild build, Rounds rounds) {
    InstalledBackend installed(build);
    if (installed.kwin == nullptr) {
        state.SkipWithError("no headless KWin here");
        return;
    }
    std::string why;
    auto waker = KWin::Bus::open(why);
    if (!waker) std::abort();
    double missed = 0;
    for (auto _ : state) {
        Snapshot snapshot = Capture::snapshot("bench");
        if (snapshot.windowCount() != windowCount) ++missed;
        pauseBetween(state, Rounds::afterPause);
        if (rounds == Rounds::backToBack) {
            state.PauseTiming();
            if (!waker->askResident(KWin::residentListingScript, waker->nextToken(), answerWithin, why)) std::abort();
            state.ResumeTiming();
        }
    }
    state.counters["missed"] = missed;
}

// Runs `round` (one answer from KWin, false when none came) round after
// round, on a bus of its own.
void runRounds(benchmark::State& state, KWinBuild build, Rounds rounds,
               const std::function<bool(KWin::Bus&, const std::string& token)>& round) {
    if (session(build) == nullptr) {
        state.SkipWithError("no headless KWin here");
        return;
    }
    std::string why;
    auto bus = KWin::Bus::open(why);
    if (!bus) std::abort();
    double failed = 0;
    for (auto _ : state) {
        if (!round(*bus, bus->nextToken())) ++failed;
        pauseBetween(state, rounds);
    }
    state.counters["failed"] = failed;
}

// Runs the script `make` gives for each token.
void runScripts(benchmark::State& state, KWinBuild build, Rounds rounds,
                std::string (*make)(const KWin::ReplyAddress&, const std::string&)) {
    runRounds(state, build, rounds, [&](KWin::Bus& bus, const std::string& token) {
        std::string why;
        // KWin's cost alone, without our check of the number it gives.
        return bus.runScript(make(bus.replyAddress(), token), token, answerWithin, why, false).has_value();
    });
}

// What one script costs at least: written, loaded, run, answered, unloaded.
void EmptyScriptRoundTrip(benchmark::State& state, KWinBuild build, Rounds rounds) {
    runScripts(state, build, rounds, KWin::answerOnlyScript);
}

// The listing script alone, as a capture ran it once: what KWin spends
// reading its 30 windows, between the empty script and the whole capture.
void ListingScriptAlone(benchmark::State& state, KWinBuild build, Rounds rounds) {
    runScripts(state, build, rounds, KWin::listingScript);
}

// The same listing from the script a running Tarnwick keeps loaded in KWin:
// what a capture now waits for. On KWin 5.27 it also knows the windows'
// maximized states from earlier rounds, where the listing script alone asks
// KWin for each window's every round.
void ResidentListingAlone(benchmark::State& state, KWinBuild build, Rounds rounds) {
    runRounds(state, build, rounds, [&](KWin::Bus& bus, const std::string& token) {
        std::string why;
        return bus.askResident(KWin::residentListingScript, token, answerWithin, why).has_value();
    });
}

// Every window moved away from where a snapshot has it, in one script, as a
// user would have moved them since.
void scatter(testing::KWinSession& kwin, int round) {
    kwin.script("var l = typeof workspace.windowList === \"function\" ? workspace.windowList() : "
                "workspace.clientList();\n"
                "for (var i = 0; i < l.length; ++i) l[i].frameGeometry = {x: 20 + (i * 37 + " +
                std::to_string(round % 7) + " * 11) % 700, y: 20 + (i * 23) % 400, width: 300, height: 200};\n");
}

// A restore over the running session: every one of the 30 windows placed
// back, each checked until it holds, as Tarnwick does it.
void PlaceThirtyWindows(benchmark::State& state, KWinBuild build) {
    InstalledBackend installed(build);
    testing::KWinSession* kwin = installed.kwin;
    if (kwin == nullptr) {
        state.SkipWithError("no headless KWin here");
        return;
    }
    Platform* backend = installed.backend.get();
    // Where the snapshot has them: a grid of their own.
    kwin->script("var l = typeof workspace.windowList === \"function\" ? workspace.windowList() : "
                 "workspace.clientList();\n"
                 "for (var i = 0; i < l.length; ++i) l[i].frameGeometry = {x: 40 + (i % 6) * 200, "
                 "y: 40 + Math.floor(i / 6) * 140, width: 260, height: 180};\n");
    backend->sleep(0.1);
    Snapshot snapshot = Capture::snapshot("bench");
    double placed = 0, rounds = 0;
    int round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        scatter(*kwin, ++round);
        backend->sleep(0.06);
        state.ResumeTiming();
        Restore::Result result = Restore::run(snapshot, nullptr);
        placed += static_cast<double>(result.windows);
        rounds += 1;
    }
    state.counters["windows"] = rounds > 0 ? placed / rounds : 0;
}

// What placing 30 windows costs at least: one script that sets every frame, answered.
void ThirtyFramesInOneScript(benchmark::State& state, KWinBuild build) {
    testing::KWinSession* kwin = session(build);
    if (kwin == nullptr) {
        state.SkipWithError("no headless KWin here");
        return;
    }
    std::vector<std::string> ids;
    for (const testing::KWinWindow& window : kwin->windows()) ids.push_back(window.id);
    std::string why;
    auto bus = KWin::Bus::open(why);
    if (!bus) std::abort();
    double failed = 0;
    int round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        scatter(*kwin, ++round);
        state.ResumeTiming();
        std::vector<KWin::Change> changes;
        for (size_t i = 0; i < ids.size(); ++i) {
            KWin::Change change;
            change.id = ids[i];
            change.x = 40.0 + static_cast<double>(i % 6) * 200;
            change.y = 40.0 + static_cast<double>(i / 6) * 140;
            change.width = 260;
            change.height = 180;
            changes.push_back(change);
        }
        std::string token = bus->nextToken();
        if (!bus->runScript(KWin::changeScript(changes, bus->replyAddress(), token), token, answerWithin, why))
            ++failed;
    }
    state.counters["failed"] = failed;
}

BENCHMARK_CAPTURE(CaptureThirtyWindows, kwin5_afterPause, KWinBuild::installed, Rounds::afterPause)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(CaptureThirtyWindows, kwin5_backToBack, KWinBuild::installed, Rounds::backToBack)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(EmptyScriptRoundTrip, kwin5_afterPause, KWinBuild::installed, Rounds::afterPause)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(EmptyScriptRoundTrip, kwin5_backToBack, KWinBuild::installed, Rounds::backToBack)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(ListingScriptAlone, kwin5_afterPause, KWinBuild::installed, Rounds::afterPause)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(ListingScriptAlone, kwin5_backToBack, KWinBuild::installed, Rounds::backToBack)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(ResidentListingAlone, kwin5_afterPause, KWinBuild::installed, Rounds::afterPause)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(ResidentListingAlone, kwin5_backToBack, KWinBuild::installed, Rounds::backToBack)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(PlaceThirtyWindows, kwin5, KWinBuild::installed)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(ThirtyFramesInOneScript, kwin5, KWinBuild::installed)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(CaptureThirtyWindows, kwin6_afterPause, KWinBuild::debian13, Rounds::afterPause)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(CaptureThirtyWindows, kwin6_backToBack, KWinBuild::debian13, Rounds::backToBack)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(EmptyScriptRoundTrip, kwin6_afterPause, KWinBuild::debian13, Rounds::afterPause)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(EmptyScriptRoundTrip, kwin6_backToBack, KWinBuild::debian13, Rounds::backToBack)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(ListingScriptAlone, kwin6_afterPause, KWinBuild::debian13, Rounds::afterPause)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(ListingScriptAlone, kwin6_backToBack, KWinBuild::debian13, Rounds::backToBack)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(ResidentListingAlone, kwin6_afterPause, KWinBuild::debian13, Rounds::afterPause)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(ResidentListingAlone, kwin6_backToBack, KWinBuild::debian13, Rounds::backToBack)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(PlaceThirtyWindows, kwin6, KWinBuild::debian13)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(ThirtyFramesInOneScript, kwin6, KWinBuild::debian13)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tarnwick

BENCHMARK_MAIN();
