// Store: save with the unchanged test, listing, pre-boot lookup and pruning.
#include "store/store.h"

#include "model/snapshot_json.h"
#include "store/atomic_file.h"
#include "store/boot_time.h"
#include "store/data_folder.h"
#include "store/log.h"
#include "store/unique_fd.h"

#include <algorithm>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>

namespace tarnwick::Store {

namespace {

// The whole content of a file; nothing when it cannot be read.
std::optional<std::string> readFile(const std::filesystem::path& path) {
    UniqueFd fd(retryOnEintr([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
    struct stat info {};
    if (!fd || ::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
    std::string content;
    // One byte more than the file, so the read that finds its end needs no growth.
    content.resize(static_cast<size_t>(info.st_size) + 1);
    size_t filled = 0;
    for (;;) {
        if (filled == content.size()) content.resize(content.size() + 4096);
        ssize_t n = retryOnEintr([&] { return ::read(fd.get(), content.data() + filled, content.size() - filled); });
        if (n < 0) return std::nullopt;
        if (n == 0) break;
        filled += static_cast<size_t>(n);
    }
    content.resize(filled);
    return content;
}

}  // namespace

Date bootTime() {
    static const Date boot = readBootTime().value_or(Date::min());
    return boot;
}

std::string fileName(Date date) {
    std::time_t seconds = std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(date));
    std::tm local{};
    localtime_r(&seconds, &local);
    char buffer[64];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%d_%H-%M-%S", &local);
    return std::string(buffer) + ".json";
}

std::vector<Entry> all() {
    std::vector<Entry> entries;
    std::error_code code;
    std::filesystem::directory_iterator listing(supportDir(), code);
    if (code) return entries;
    SnapshotDecoder decoder;
    for (const auto& item : listing) {
        const std::filesystem::path& path = item.path();
        if (path.extension() != ".json") continue;
        auto content = readFile(path);
        if (!content) continue;
        if (auto snapshot = decoder.decode(*content)) entries.push_back({path, std::move(*snapshot)});
    }
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Entry& a, const Entry& b) { return a.snapshot.date > b.snapshot.date; });
    return entries;
}

const Entry* beforeBoot(const std::vector<Entry>& entries) {
    for (const auto& entry : entries)
        if (entry.snapshot.date < bootTime()) return &entry;
    return nullptr;
}

std::optional<Snapshot> beforeBoot() {
    auto entries = all();
    const Entry* found = beforeBoot(entries);
    return found ? std::optional<Snapshot>(found->snapshot) : std::nullopt;
}

void prune() {
    auto entries = all();
    const Entry* preBoot = beforeBoot(entries);
    if (entries.size() <= keep) return;
    for (size_t i = keep; i < entries.size(); ++i) {
        if (&entries[i] == preBoot) continue;
        std::error_code ignored;  // a file that stays is tried again at the next prune
        std::filesystem::remove(entries[i].url, ignored);
    }
}

bool save(const Snapshot& snapshot) {
    auto entries = all();
    // Only the newest readable snapshot counts, and only when it was taken during
    // this boot: the first save after a restart is always written.
    if (!entries.empty()) {
        const Snapshot& newest = entries.front().snapshot;
        if (sameList(newest.apps, snapshot.apps) && newest.date > bootTime()) return false;
    }
    std::filesystem::path url = supportDir() / fileName(snapshot.date);
    std::string error;
    auto bytes = encodeSnapshot(snapshot, &error);
    if (!bytes || !writeFileAtomically(url, *bytes, error)) {
        log("save failed: " + error);
        return false;
    }
    prune();
    return true;
}

}  // namespace tarnwick::Store
