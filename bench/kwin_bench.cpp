// KWin backend benchmarks on a headless KWin: a capture of 30 windows (20
// XWayland, 10 Wayland-native) beside the bare cost of loading and running an
// empty script that answers, in one run. Skipped where KWin cannot start.
#include "platform/kwin/kwin_bus.h"
#include "platform/kwin/kwin_platform.h"
#include "platform/kwin/kwin_scripts.h"
#include "session/capture.h"
#include "support/kwin_session.h"
#include "support/virtual_display.h"

#include <benchmark/benchmark.h>

namespace tarnwick {
namespace {

constexpr int windowCount = 30;
constexpr int waylandCount = 10;

// One KWin for every benchmark here, with its 30 windows, started at first use.
testing::KWinSession* session() {
    static testing::KWinSession shared;
    static bool started = false;
    if (!shared.running()) return nullptr;
    if (!started) {
        started = true;
        for (int i = 0; i < windowCount - waylandCount; ++i) shared.start("xlogo", {});
        for (int i = 0; i < waylandCount; ++i) shared.start("weston-terminal", {});
        if (!testing::eventually([&] { return shared.windows().size() >= windowCount; }, 60.0)) std::abort();
    }
    return &shared;
}

// A capture as a running Tarnwick makes it: bus and desktop entries already there.
void CaptureThirtyWindows(benchmark::State& state) {
    testing::KWinSession* kwin = session();
    if (kwin == nullptr) {
        state.SkipWithError("no headless KWin here");
        return;
    }
    std::string why;
    auto backend = openKWinPlatform(why);
    if (!backend) std::abort();
    Platform* previous = installPlatform(backend.get());
    double missed = 0;
    for (auto _ : state) {
        Snapshot snapshot = Capture::snapshot("bench");
        size_t windows = 0;
        for (const AppState& app : snapshot.apps) windows += app.windows.size();
        if (windows != windowCount) ++missed;
        // The listing stands for 50 ms; every round must ask KWin again.
        state.PauseTiming();
        backend->sleep(0.06);
        state.ResumeTiming();
    }
    state.counters["missed"] = missed;
    installPlatform(previous);
}
BENCHMARK(CaptureThirtyWindows)->Unit(benchmark::kMillisecond)->UseRealTime();

// What one script costs at least: written, loaded, run, answered, unloaded.
void EmptyScriptRoundTrip(benchmark::State& state) {
    if (session() == nullptr) {
        state.SkipWithError("no headless KWin here");
        return;
    }
    std::string why;
    auto bus = KWin::Bus::open(why);
    if (!bus) std::abort();
    double failed = 0;
    for (auto _ : state) {
        std::string token = bus->nextToken();
        if (!bus->runScript(KWin::answerOnlyScript(bus->replyAddress(), token), token,
                            std::chrono::milliseconds(3000), why))
            ++failed;
    }
    state.counters["failed"] = failed;
}
BENCHMARK(EmptyScriptRoundTrip)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tarnwick

BENCHMARK_MAIN();
