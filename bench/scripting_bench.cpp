// Scripting benchmarks: parsing a large listing, and one runner round trip.
#include "scripting/listing.h"
#include "scripting/runner.h"

#include <benchmark/benchmark.h>

namespace tarnwick {
namespace {

// 50 windows holding 2,000 tabs, as a browser's capture script prints them.
std::string largeListing() {
    std::string listing;
    for (int w = 0; w < 50; ++w) {
        listing += "W\t" + std::to_string(20 * w) + ";25;" + std::to_string(20 * w + 1200) + ";900\t3\n";
        for (int t = 0; t < 40; ++t)
            listing += "T\thttps://example.com/articles/" + std::to_string(w) + "/" + std::to_string(t) + "?ref=x\n";
    }
    return listing + "\n";
}

void ParseWindows(benchmark::State& state) {
    std::optional<std::string> listing = largeListing();
    for (auto _ : state) {
        auto windows = parseWindows(listing);
        if (windows->size() != 50) state.SkipWithError("expected 50 windows");
        benchmark::DoNotOptimize(windows);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * listing->size()));
}
BENCHMARK(ParseWindows)->Unit(benchmark::kMicrosecond);

// Spawn, feed, drain and reap, with `cat -` standing in for the interpreter.
void RunnerRoundTrip(benchmark::State& state) {
    Scripts::setToolsForTesting({"/bin/cat", "/bin/ps", "/usr/sbin/lsof"});
    for (auto _ : state) {
        auto result = runAppleScript("return 1");
        if (!result) state.SkipWithError("the run failed");
        benchmark::DoNotOptimize(result);
    }
    Scripts::setToolsForTesting({});
}
BENCHMARK(RunnerRoundTrip)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tarnwick
