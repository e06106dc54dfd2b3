// Store: save with the unchanged test, listing, pre-boot lookup and pruning.
#include "store/store.h"

#include "model/snapshot_json.h"
#include "store/atomic_file.h"
#include "store/boot_time.h"
#include "store/data_folder.h"
#include "store/log.h"
#include "store/signing.h"
#include "store/snapshot_file.h"
#include "model/unique_fd.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cctype>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <mutex>
#include <string_view>
#include <sys/stat.h>

namespace tarnwick::Store {

namespace {

// A save still writing keeps its temporary file younger than this; an older one
// was left by a save that was killed, and prune removes it.
constexpr auto staleTemporaryAge = std::chrono::minutes(10);

// What a look at the folder found, without opening anything.
struct Folder {
    std::vector<std::filesystem::path> snapshots;    // regular files named *.json, in listing order
    std::vector<std::filesystem::path> temporaries;  // our own temporary files, stale ones only
};

// Whether the name is that of a temporary file a save makes: ".2026-03-14_09-26-53.json.XXXXXX".
bool isOurTemporaryName(const std::string& name) {
    static constexpr std::string_view shape = ".0000-00-00_00-00-00.json.XXXXXX";
    if (name.size() != shape.size()) return false;
    for (size_t i = 0; i < shape.size(); ++i) {
        auto c = static_cast<unsigned char>(name[i]);
        bool fits = shape[i] == '0' ? std::isdigit(c) != 0 : shape[i] == 'X' ? std::isalnum(c) != 0 : c == shape[i];
        if (!fits) return false;
    }
    return true;
}

bool isStale(const std::filesystem::path& path) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
    auto modified = std::chrono::system_clock::from_time_t(info.st_mtime);
    return std::chrono::system_clock::now() - modified > staleTemporaryAge;
}

// Looks through the folder without following anything but a link to a regular
// file, and without throwing: a read error ends the look with what it found.
Folder look() {
    Folder folder;
    std::error_code code;
    std::filesystem::directory_iterator item(supportDir(), code);
    for (; !code && item != std::filesystem::directory_iterator(); item.increment(code)) {
        const std::filesystem::path& path = item->path();
        std::string name = path.filename().string();
        if (isOurTemporaryName(name)) {
            if (isStale(path)) folder.temporaries.push_back(path);
            continue;
        }
        if (path.extension() != ".json") continue;
        // A pipe, a device or a folder is never opened: opening a pipe blocks.
        std::error_code typeCode;
        if (!item->is_regular_file(typeCode) || typeCode) continue;
        folder.snapshots.push_back(path);
    }
    return folder;
}

// Reads a whole file into `buffer`, followed by the padding the decoder may read;
// the text's length, or nothing when it is not a readable snapshot file. `read`
// receives what fstat said of the file read.
std::optional<size_t> readFile(const std::filesystem::path& path, std::string& buffer, struct stat* read = nullptr) {
    return readSnapshotFile(path, buffer, SnapshotDecoder::padding, nullptr, read);
}

// Each thread keeps its own parser and read buffer between calls: the store is
// used from the main thread and the work queue, and a parser is not shared.
struct Reading {
    SnapshotDecoder decoder;
    std::string buffer;
};
Reading& reading() {
    thread_local Reading state;
    return state;
}

std::optional<Snapshot> readSnapshot(const std::filesystem::path& path) {
    Reading& state = reading();
    auto length = readFile(path, state.buffer);
    if (!length) return std::nullopt;
    auto snapshot = state.decoder.decodePadded(std::string_view(state.buffer.data(), *length));
    if (snapshot) Signing::judge(*snapshot);
    return snapshot;
}

// A readable snapshot file whose records were checked but not built.
struct Dated {
    std::filesystem::path url;
    Date date;
};

void newestFirst(std::vector<Dated>& files) {
    std::stable_sort(files.begin(), files.end(), [](const Dated& a, const Dated& b) { return a.date > b.date; });
}

// A file as stat describes it: any write, rename or replacement changes it.
struct Identity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    std::int64_t modified = 0;  // nanoseconds
    std::int64_t changed = 0;   // nanoseconds; no program can set this one
    bool operator==(const Identity&) const = default;
};

Identity identityOf(const struct stat& info) {
#if defined(__APPLE__)
    const struct timespec& modified = info.st_mtimespec;
    const struct timespec& changed = info.st_ctimespec;
#else
    const struct timespec& modified = info.st_mtim;
    const struct timespec& changed = info.st_ctim;
#endif
    auto nanoseconds = [](const struct timespec& t) { return std::int64_t{t.tv_sec} * 1'000'000'000 + t.tv_nsec; };
    return {info.st_dev, info.st_ino, info.st_size, nanoseconds(modified), nanoseconds(changed)};
}

// What checking each file of the folder found, kept between calls so that a
// save checks only the files that changed since the last one. A file is known
// by its identity, never by its name alone.
struct Checked {
    Identity identity;
    std::optional<Date> date;  // nothing: not a readable snapshot
};
std::mutex checkedLock;
std::map<std::filesystem::path, Checked>& checkedFiles() {
    static std::map<std::filesystem::path, Checked> files;
    return files;
}

// Checks one file, reading it: its identity as read, and its date when it is a snapshot.
std::optional<Checked> check(const std::filesystem::path& path) {
    Reading& state = reading();
    struct stat info {};
    auto length = readFile(path, state.buffer, &info);
    if (!length) return std::nullopt;
    return Checked{identityOf(info), state.decoder.datePadded(std::string_view(state.buffer.data(), *length))};
}

// A digest of a session's apps that equal apps always share: every text, flag
// and number goes in, 0 and -0 as one. Different digests prove that two lists of
// apps differ; equal ones prove nothing and are checked in full.
class Digest {
public:
    std::uint64_t value = 0x243f6a8885a308d3;

    void add(std::uint64_t v) { value = (std::rotl(value, 5) ^ v) * 0x9e3779b97f4a7c15; }
    void add(std::string_view text) { add(static_cast<std::uint64_t>(std::hash<std::string_view>{}(text))); }
    void add(const std::string& text) { add(std::string_view(text)); }
    void add(const TextList& texts) {
        add(std::uint64_t{texts.size()});
        for (std::string_view text : texts) add(text);
    }
    void add(double d) { add(std::bit_cast<std::uint64_t>(d == 0 ? 0.0 : d)); }
    void add(const Frame& f) {
        for (double d : {f.x, f.y, f.w, f.h}) add(d);
    }
    template <typename T>
    void add(const std::optional<T>& v) {
        add(std::uint64_t{v.has_value()});
        if (v) add(*v);
    }
    template <typename T>
    void add(const std::vector<T>& list) {
        add(std::uint64_t{list.size()});
        for (const auto& item : list) add(item);
    }
    void add(const WindowState& w) {
        add(w.title), add(w.document), add(w.frame), add(std::uint64_t{w.minimized}), add(std::uint64_t{w.fullScreen});
        add(w.workspace ? std::optional<std::uint64_t>(static_cast<std::uint64_t>(*w.workspace)) : std::nullopt);
        for (const auto& flag : {w.maximizedHorizontally, w.maximizedVertically})
            add(flag ? std::optional<std::uint64_t>(*flag) : std::nullopt);
        add(w.output);
    }
    void add(const ScriptedWindow& w) {
        add(w.frame), add(w.items), add(static_cast<std::uint64_t>(w.activeIndex));
    }
    void add(const AppState& app) {
        add(app.name), add(app.bundleID), add(app.bundlePath), add(static_cast<std::uint64_t>(app.kind));
        add(std::uint64_t{app.hidden}), add(app.windows), add(app.scripted), add(app.commandLine);
        add(app.workingDirectory);
    }
};

std::uint64_t digestOf(const std::vector<AppState>& apps) {
    Digest digest;
    digest.add(apps);
    return digest.value;
}

// The file this process wrote last and the digest of its apps: a save whose
// session differs from it needs not read that file back to know.
struct Written {
    Identity identity;
    std::uint64_t digest = 0;
};
std::optional<Written> lastWritten;  // guarded by checkedLock

// Whether the newest file is the one written last and its apps differ from these.
bool differsFromLastWritten(const std::filesystem::path& newest, std::uint64_t digest) {
    std::lock_guard guard(checkedLock);
    auto found = checkedFiles().find(newest);
    return lastWritten && found != checkedFiles().end() && found->second.identity == lastWritten->identity &&
           lastWritten->digest != digest;
}

// The readable snapshots of the folder with their dates, newest first, as all()
// would list them.
std::vector<Dated> dated(const Folder& folder) {
    std::lock_guard guard(checkedLock);
    auto& known = checkedFiles();
    std::map<std::filesystem::path, Checked> now;
    std::vector<Dated> files;
    for (const auto& path : folder.snapshots) {
        struct stat info {};
        if (::stat(path.c_str(), &info) != 0) continue;
        std::optional<Checked> result;
        if (auto found = known.find(path); found != known.end() && found->second.identity == identityOf(info))
            result = found->second;
        else
            result = check(path);
        if (!result) continue;  // unreadable now: looked at again next time
        if (result->date) files.push_back({path, *result->date});
        now.emplace(path, *result);
    }
    // Files that are gone are forgotten.
    known = std::move(now);
    newestFirst(files);
    return files;
}

// The newest snapshot taken strictly before the boot, in a dated listing; null when none.
const Dated* beforeBoot(const std::vector<Dated>& files) {
    for (const auto& file : files)
        if (file.date < bootTime()) return &file;
    return nullptr;
}

// Deletes all but the `keep` newest and the newest pre-boot one, and the stale temporary files.
void prune(const std::vector<Dated>& files, const Folder& folder) {
    std::error_code ignored;  // a file that stays is tried again at the next prune
    for (const auto& temporary : folder.temporaries) std::filesystem::remove(temporary, ignored);
    const Dated* preBoot = beforeBoot(files);
    for (size_t i = keep; i < files.size(); ++i)
        if (&files[i] != preBoot) std::filesystem::remove(files[i].url, ignored);
}

}  // namespace

namespace {
// The boot time a test set, when it set one.
std::atomic<bool> bootTimeSet{false};
std::atomic<Date::rep> bootTimeForTesting{0};
}  // namespace

Date bootTime() {
    if (bootTimeSet.load()) return Date(Date::duration(bootTimeForTesting.load()));
    static const Date boot = readBootTime().value_or(Date::min());
    return boot;
}

void setBootTimeForTesting(Date boot) {
    bootTimeForTesting.store(boot.time_since_epoch().count());
    bootTimeSet.store(true);
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
    for (const auto& path : look().snapshots)
        if (auto snapshot = readSnapshot(path)) entries.push_back({path, std::move(*snapshot)});
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
    auto files = dated(look());
    const Dated* found = beforeBoot(files);
    return found ? readSnapshot(found->url) : std::nullopt;
}

void prune() {
    Folder folder = look();
    prune(dated(folder), folder);
}

Saved write(const Snapshot& snapshot, std::string* why) {
    Folder folder = look();
    auto files = dated(folder);
    // Compared as it would be written: a stray byte in a text is written as U+FFFD.
    std::optional<Snapshot> repaired;
    if (!textsAreValidUtf8(snapshot)) makeTextsValidUtf8(repaired.emplace(snapshot));
    const Snapshot& compared = repaired ? *repaired : snapshot;
    std::uint64_t digest = digestOf(compared.apps);
    // Only the newest readable snapshot counts, and only when it was taken during
    // this boot: the first save after a restart is always written.
    if (!files.empty() && files.front().date > bootTime() && !differsFromLastWritten(files.front().url, digest)) {
        auto newest = readSnapshot(files.front().url);
        if (newest && sameList(newest->apps, compared.apps)) return Saved::unchanged;
    }
    std::filesystem::path url = supportDir() / fileName(snapshot.date);
    std::string error;
    auto bytes = encodeSnapshot(snapshot, Signing::signatureOf(snapshot), &error);
    if (!bytes || !writeFileAtomically(url, *bytes, error)) {
        log("save failed: " + error);
        if (why) *why = std::move(error);
        return Saved::failed;
    }
    // The file just written needs no checking: its date is this snapshot's, in
    // the whole seconds the file keeps.
    Date written = std::chrono::floor<std::chrono::seconds>(snapshot.date);
    if (struct stat info {}; ::stat(url.c_str(), &info) == 0) {
        std::lock_guard guard(checkedLock);
        checkedFiles()[url] = Checked{identityOf(info), written};
        lastWritten = Written{identityOf(info), digest};
    }
    // The folder as it is now: the new file, in place of any of the same name.
    std::erase_if(files, [&](const Dated& file) { return file.url == url; });
    files.push_back({url, written});
    newestFirst(files);
    prune(files, folder);
    return Saved::written;
}

bool save(const Snapshot& snapshot) { return write(snapshot) == Saved::written; }

}  // namespace tarnwick::Store
