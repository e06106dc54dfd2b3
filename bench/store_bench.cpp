// Store and JSON benchmarks on a heavy session: 60 apps, 400 windows, 2,000 tabs.
#include "model/snapshot_json.h"
#include "store/data_folder.h"
#include "store/store.h"
#include "support/snapshot_gen.h"
#include "support/temp_dir.h"

#include <benchmark/benchmark.h>

#include <cstdlib>

namespace tarnwick {
namespace {

Snapshot heavy(int secondsAfterBoot = 3600) {
    return testing::heavySession(60, 400, 2000, Store::bootTime() + std::chrono::seconds(secondsAfterBoot));
}

// Listing and decoding a folder as full as pruning lets it get.
void StoreAll(benchmark::State& state) {
    for (int i = 0; i < 11; ++i) {
        Snapshot s = heavy(3600 + i);
        testing::writeText(supportDir() / Store::fileName(s.date), *encodeSnapshot(s));
    }
    size_t bytes = 0;
    for (const auto& name : testing::fileNames(supportDir())) bytes += std::filesystem::file_size(supportDir() / name);
    for (auto _ : state) {
        auto entries = Store::all();
        if (entries.size() != 11) state.SkipWithError("expected 11 snapshots");
        benchmark::DoNotOptimize(entries);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
    state.counters["files"] = 11;
    state.counters["folder_bytes"] = static_cast<double>(bytes);
}
BENCHMARK(StoreAll)->Unit(benchmark::kMillisecond);

void EncodeSnapshot(benchmark::State& state) {
    Snapshot s = heavy();
    size_t bytes = 0;
    for (auto _ : state) {
        auto text = encodeSnapshot(s);
        bytes = text->size();
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
    state.counters["file_bytes"] = static_cast<double>(bytes);
}
BENCHMARK(EncodeSnapshot)->Unit(benchmark::kMicrosecond);

void DecodeSnapshot(benchmark::State& state) {
    std::string text = *encodeSnapshot(heavy());
    SnapshotDecoder decoder;
    for (auto _ : state) benchmark::DoNotOptimize(decoder.decode(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(DecodeSnapshot)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace tarnwick

int main(int argc, char** argv) {
    // The store's folder is fixed at first use: point it at a private folder first.
    tarnwick::testing::TempDir home("tarnwick-bench");
    setenv("XDG_DATA_HOME", (home.path() / "data").c_str(), 1);
    setenv("XDG_STATE_HOME", (home.path() / "state").c_str(), 1);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
