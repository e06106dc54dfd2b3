// Store: the snapshot files in supportDir, their listing, pruning and the pre-boot rule.
#pragma once

#include "model/snapshot.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick::Store {

// How many of the newest snapshots prune always keeps.
inline constexpr size_t keep = 10;

// One readable snapshot file.
struct Entry {
    std::filesystem::path url;
    Snapshot snapshot;
};

// What a save did.
enum class Saved {
    written,    // a new file is in place, and old files were pruned
    unchanged,  // the newest stored snapshot taken after the boot has the same apps
    failed,     // nothing could be written; the folder is as it was
};

// Writes the snapshot unless its apps equal those of the newest stored snapshot
// taken after the boot. A failure is logged as "save failed: " with the reason,
// which `why`, when given, receives too.
Saved write(const Snapshot& snapshot, std::string* why = nullptr);

// The same, true only when a file was written: an unchanged session and a
// failure both give false.
bool save(const Snapshot& snapshot);

// Every readable snapshot, newest first; equal dates keep the listing's order.
// Unreadable files are left out silently and never deleted.
std::vector<Entry> all();

// The newest snapshot taken strictly before the current boot.
std::optional<Snapshot> beforeBoot();
// The same, found in a listing already read with `all()`; null when there is none.
const Entry* beforeBoot(const std::vector<Entry>& entries);

// Deletes all but the `keep` newest readable snapshots and the newest pre-boot one.
void prune();

// When this machine booted; the distant past when the system does not say, so
// that nothing counts as taken before the boot. Computed once.
Date bootTime();

// Makes bootTime() give `boot` from now on instead of the system's answer. For
// tests only, which must not depend on when the machine they run on booted;
// the program itself never calls it.
void setBootTimeForTesting(Date boot);

// The file name of a snapshot: its date in local time, "2026-03-14_09-26-53.json".
std::string fileName(Date date);

}  // namespace tarnwick::Store
