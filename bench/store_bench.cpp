// Store and JSON benchmarks on a heavy session: 60 apps, 400 windows, 2,000 tabs.
#include "model/snapshot_json.h"
#include "store/atomic_file.h"
#include "store/data_folder.h"
#include "store/store.h"
#include "support/snapshot_gen.h"
#include "support/temp_dir.h"

#include <benchmark/benchmark.h>
#include <simdjson.h>

#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarnwick {
namespace {

Snapshot heavy(int secondsAfterBoot = 3600) {
    return testing::heavySession(60, 400, 2000, Store::bootTime() + std::chrono::seconds(secondsAfterBoot));
}

// The folder as full as pruning lets it get: ten snapshots of this boot and
// the one from before it, all heavy. Their total size.
size_t fillFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(supportDir(), ignored);
    std::filesystem::create_directories(supportDir());
    for (int i = 0; i < 10; ++i) {
        Snapshot s = heavy(3600 + i);
        testing::writeText(supportDir() / Store::fileName(s.date), *encodeSnapshot(s));
    }
    Snapshot preBoot = heavy(-3600);
    testing::writeText(supportDir() / Store::fileName(preBoot.date), *encodeSnapshot(preBoot));
    size_t bytes = 0;
    for (const auto& name : testing::fileNames(supportDir())) bytes += std::filesystem::file_size(supportDir() / name);
    return bytes;
}

// Listing and decoding that folder, as the menu does at every opening.
void StoreAll(benchmark::State& state) {
    size_t bytes = fillFolder();
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

// The folder's snapshot files, and one file's bytes read with one read into a
// buffer carrying the parser's padding; the length read.
std::vector<std::filesystem::path> folderFiles() {
    std::vector<std::filesystem::path> files;
    for (const auto& name : testing::fileNames(supportDir())) files.push_back(supportDir() / name);
    return files;
}
size_t readPadded(const std::filesystem::path& file, std::string& buffer) {
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat info {};
    ::fstat(fd, &info);
    auto size = static_cast<size_t>(info.st_size);
    if (buffer.size() < size + SnapshotDecoder::padding) buffer.resize(size + SnapshotDecoder::padding);
    ssize_t n = ::read(fd, buffer.data(), size);
    ::close(fd);
    return n == static_cast<ssize_t>(size) ? size : 0;
}

// The floor under StoreAll: reading the same files' bytes (one read each, into
// one padded buffer) and simdjson's parse of them, building nothing.
void StoreAllFloor(benchmark::State& state) {
    size_t bytes = fillFolder();
    auto files = folderFiles();
    simdjson::dom::parser parser;
    std::string buffer;
    for (auto _ : state) {
        size_t parsed = 0;
        for (const auto& file : files) {
            size_t size = readPadded(file, buffer);
            simdjson::dom::element root;
            if (size > 0 && parser.parse(buffer.data(), size, false).get(root) == simdjson::SUCCESS) ++parsed;
        }
        if (parsed != files.size()) state.SkipWithError("a file did not parse");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(StoreAllFloor)->Unit(benchmark::kMillisecond);

// The same files through every check the reader makes, building no records:
// what the reading costs above the floor.
void StoreAllChecks(benchmark::State& state) {
    fillFolder();
    auto files = folderFiles();
    SnapshotDecoder decoder;
    std::string buffer;
    for (auto _ : state) {
        size_t checked = 0;
        for (const auto& file : files) {
            size_t size = readPadded(file, buffer);
            if (size > 0 && decoder.datePadded(std::string_view(buffer.data(), size))) ++checked;
        }
        if (checked != files.size()) state.SkipWithError("a file did not pass the checks");
    }
}
BENCHMARK(StoreAllChecks)->Unit(benchmark::kMillisecond);

// What owning records cost above the floor, whatever reads them: copying the
// eleven snapshots' records, their texts, lists and tab buffers allocated and
// then freed, as a listing's are. A listing can be no faster than the floor plus this.
void StoreAllRecords(benchmark::State& state) {
    std::vector<Snapshot> snapshots;
    for (int i = 0; i < 10; ++i) snapshots.push_back(heavy(3600 + i));
    snapshots.push_back(heavy(-3600));
    for (auto _ : state) {
        std::vector<Snapshot> copy = snapshots;
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(StoreAllRecords)->Unit(benchmark::kMillisecond);

// A save that is written, with that folder present: the unchanged test, the
// write and the prune back to eleven files.
void StoreSave(benchmark::State& state) {
    fillFolder();
    Snapshot next = heavy(7200);
    int second = 0;
    for (auto _ : state) {
        next.date += std::chrono::seconds(1);
        // Never equal to the newest, so that every save writes.
        next.apps.front().hidden = (++second % 2) == 1;
        if (!Store::save(next)) state.SkipWithError("the save did not write");
    }
    state.counters["files_after"] = static_cast<double>(testing::fileNames(supportDir()).size());
}
BENCHMARK(StoreSave)->Unit(benchmark::kMillisecond);

// What StoreSave cannot do without: encoding the same snapshot and writing it atomically.
void StoreSaveFloor(benchmark::State& state) {
    fillFolder();
    Snapshot next = heavy(7200);
    std::filesystem::path url = supportDir() / "floor.json";
    for (auto _ : state) {
        std::string error;
        auto bytes = encodeSnapshot(next);
        if (!bytes || !writeFileAtomically(url, *bytes, error)) state.SkipWithError("the write failed");
    }
    std::filesystem::remove(url);
}
BENCHMARK(StoreSaveFloor)->Unit(benchmark::kMillisecond);

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
    // One process group for the benchmarks and all they start, so that it can
    // be ended as one; each program started also dies with this process.
    ::setpgid(0, 0);
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
