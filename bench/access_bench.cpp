// Window-access benchmark: listing and reading an application's windows on the
// simulated desktop, which measures AXO's own work around the platform calls
// (the 1,000 token attempts included).
#include "access/axo.h"
#include "support/sim_desktop.h"

#include <benchmark/benchmark.h>

namespace tarnwick {
namespace {

void ListAndReadWindows(benchmark::State& state) {
    testing::SimDesktop desktop;
    testing::ScopedPlatform installed(desktop);
    auto pid = desktop.startApp(testing::appSpec("com.example.Editor", "/Applications/Editor.app", "Editor"));
    const auto count = static_cast<int>(state.range(0));
    for (int i = 0; i < count; ++i) {
        testing::SimWindow window;
        window.title = "Document " + std::to_string(i);
        window.listed = i % 3 != 0;  // a third only reachable by token
        desktop.addWindow(pid, window);
    }
    for (auto _ : state) {
        std::vector<WindowState> states;
        for (const Element& window : AXO::windows(pid)) states.push_back(AXO::state(window));
        if (states.size() != static_cast<size_t>(count)) state.SkipWithError("lost a window");
        benchmark::DoNotOptimize(states);
        desktop.tokens.clear();
        desktop.timeouts.clear();
    }
}
BENCHMARK(ListAndReadWindows)->Arg(1)->Arg(6)->Arg(30)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace tarnwick
