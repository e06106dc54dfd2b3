// X11 backend benchmarks on a virtual display (Xvfb with openbox): capturing
// 30 windows of 30 running programs, and placing 30 windows of a running app.
// A round that misses a window is counted, not reported as an error: an error
// ends a repetition early, and repetitions of unequal length stop the
// benchmark library's statistics.
#include "platform/platform.h"
#include "session/capture.h"
#include "platform/x11/platform_x11.h"
#include "session/restore.h"
#include "support/virtual_display.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <sys/wait.h>
#include <unistd.h>

namespace tarnwick {
namespace {

constexpr int windowCount = 30;

// One display for every benchmark here, started at first use.
testing::VirtualDisplay& display() {
    static testing::VirtualDisplay shared;
    return shared;
}

std::unique_ptr<Platform> backend() {
    std::string why;
    auto x11 = openX11Platform("", why);
    if (!x11) std::abort();
    return x11;
}

void startLogos() {
    static bool started = false;
    if (started) return;
    started = true;
    testing::DisplayProbe probe;
    for (int i = 0; i < windowCount; ++i) {
        std::string geometry = "120x90+" + std::to_string(40 * i) + "+" + std::to_string(20 * i);
        display().start("xlogo", {"-geometry", geometry});
    }
    if (!testing::eventually([&] { return probe.clientsOfClass("XLogo").size() >= windowCount; }, 60.0))
        std::abort();
}

// A capture as a running Tarnwick makes it: connection and desktop entries already there.
void CaptureThirtyWindows(benchmark::State& state) {
    display();
    startLogos();
    auto x11 = backend();
    Platform* previous = installPlatform(x11.get());
    double missed = 0;
    for (auto _ : state) {
        Snapshot snapshot = Capture::snapshot("bench");
        if (snapshot.windowCount() != windowCount) ++missed;
        benchmark::DoNotOptimize(snapshot);
    }
    installPlatform(previous);
    state.counters["missed"] = missed;
}
BENCHMARK(CaptureThirtyWindows)->Unit(benchmark::kMillisecond)->UseRealTime();

// What a user runs, as processes on the same display: "tarnwick --capture"
// and "wmctrl -lGpx", which lists every window with its pid, frame and class,
// alternating so that both meet the same machine. Real time of each, per run.
void CaptureProcessAgainstWmctrl(benchmark::State& state) {
    display();
    startLogos();
    auto timed = [](const std::string& program, const std::vector<std::string>& arguments) {
        auto started = std::chrono::steady_clock::now();
        int error = 0;
        auto child = ChildProcess::start(program, arguments, ChildProcess::Input::inherit,
                                         ChildProcess::ErrorOutput::discard, error);
        if (!child) std::abort();
        char buffer[65536];
        while (retryOnEintr([&] { return ::read(child->output().get(), buffer, sizeof buffer); }) > 0) {
        }
        int status = child->wait();
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) std::abort();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    };
    const std::string wmctrl = testing::programPath("wmctrl");
    double ours = 0, theirs = 0;
    for (auto _ : state) {
        theirs += timed(wmctrl, {"-lGpx"});
        ours += timed(TARNWICK_PATH, {"--capture"});
    }
    auto runs = static_cast<double>(state.iterations());
    state.counters["tarnwick_ms"] = 1000 * ours / runs;
    state.counters["wmctrl_ms"] = 1000 * theirs / runs;
    state.counters["ratio"] = ours / theirs;
}
BENCHMARK(CaptureProcessAgainstWmctrl)->Unit(benchmark::kMillisecond)->UseRealTime();

// The whole of "--capture" but the printing: connecting and reading the
// desktop entries of the machine too.
void CaptureThirtyWindowsCold(benchmark::State& state) {
    display();
    startLogos();
    for (auto _ : state) {
        auto x11 = backend();
        Platform* previous = installPlatform(x11.get());
        Snapshot snapshot = Capture::snapshot("bench");
        installPlatform(previous);
        benchmark::DoNotOptimize(snapshot);
    }
}
BENCHMARK(CaptureThirtyWindowsCold)->Unit(benchmark::kMillisecond)->UseRealTime();

// Thirty windows of this process, sent to alternating places each round;
// `shown` waits until the window manager has drawn every frame there.
void PlaceThirtyWindows(benchmark::State& state, bool shown) {
    display();
    testing::DisplayProbe probe;
    // The windows of an earlier repetition must be gone, or titles would match them.
    if (!testing::eventually([&] { return probe.clientsOfClass("Probe").empty(); }, 30.0)) std::abort();
    std::vector<std::uint32_t> windows;
    for (int i = 0; i < windowCount; ++i)
        windows.push_back(probe.createWindow("Window " + std::to_string(i), testing::DisplayProbe::Kind::normal));
    if (!testing::eventually([&] { return probe.clientsOfClass("Probe").size() >= windowCount; }, 30.0))
        std::abort();
    auto x11 = backend();
    Platform* previous = installPlatform(x11.get());
    std::optional<App> self;
    for (const App& app : x11->runningApplications())
        if (x11->appInfo(app).pid == ::getpid()) self = app;
    if (!self) std::abort();

    AppState layouts[2];
    for (int round = 0; round < 2; ++round)
        for (int i = 0; i < windowCount; ++i) {
            WindowState window;
            window.title = "Window " + std::to_string(i);
            window.frame = Frame{static_cast<double>(30 * i + 200 * round), static_cast<double>(25 * i + 10),
                                 static_cast<double>(200 + 3 * i), static_cast<double>(150 + 2 * i)};
            layouts[round].windows.push_back(window);
        }
    int round = 0;
    double unplaced = 0, unshown = 0;
    for (auto _ : state) {
        const AppState& layout = layouts[round];
        round = 1 - round;
        Restore::Result result;
        Restore::restoreGeneric(layout, *self, false, result);
        if (result.windows != windowCount) ++unplaced;
        if (shown) {
            const Frame& last = *layout.windows.back().frame;
            bool placed = testing::eventually(
                [&] {
                    auto frame = probe.frame(windows.back());
                    return frame && frame->x == static_cast<int>(last.x) && frame->w == static_cast<int>(last.w);
                },
                10.0);
            if (!placed) ++unshown;
        }
    }
    installPlatform(previous);
    for (std::uint32_t window : windows) probe.destroyWindow(window);
    state.counters["unplaced"] = unplaced;
    if (shown) state.counters["unshown"] = unshown;
}
BENCHMARK_CAPTURE(PlaceThirtyWindows, requests, false)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(PlaceThirtyWindows, untilShown, true)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tarnwick
