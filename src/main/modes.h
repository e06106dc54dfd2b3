// The one-shot modes' pieces, shared by the entry and the store's modes.
#pragma once

#include "model/snapshot.h"

#include <cstdio>
#include <optional>
#include <string>

namespace tarnwick::Entry {

// The one-shot modes end the process abnormally on bad input: a script that
// runs us must not mistake a failure for an empty result.
[[noreturn]] void fatal(const std::string& message);

// The exit status of a mode whose display went away while it worked.
inline constexpr int displayLostStatus = 3;

// When the desktop went away (the X server ended): says so on `err` in one
// line, "tarnwick: the display went away; " and what became of the work.
bool reportedDesktopLost(std::FILE* err, const std::string& outcome);

// The text and a line feed, flushed.
void printLine(std::FILE* out, const std::string& text);

// The snapshot in the file; a file that cannot be read or is not a snapshot is fatal.
std::optional<Snapshot> readSnapshotFile(const std::string& path);

// The snapshot a restore or a diff names: the file at that path when there is
// one; else "latest" (also for an empty name), "before-boot" or a position in
// the list (1 for the newest); else the path, which then fails as a file.
// Nothing, with the reason in `why`, when the store has no such snapshot.
std::optional<Snapshot> namedSnapshot(const std::string& name, std::string& why);

int helpMode(std::FILE* out);
int versionMode(std::FILE* out);
// The store's snapshots, newest first; files that are not snapshots are named on `err`.
int listMode(bool json, std::FILE* out, std::FILE* err);
// A capture saved into the store as the application saves, with its log line;
// a save that could not be written is said on `err`, with status 1.
int saveMode(const std::string& reason, std::FILE* out, std::FILE* err);
// What a restore of the snapshot would change in the live session.
int diffMode(const Snapshot& snapshot, std::FILE* out);

}  // namespace tarnwick::Entry
