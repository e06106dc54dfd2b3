// The two process-wide locations: the snapshot folder and the log file.
#pragma once

#include <filesystem>
#include <optional>

namespace tarnwick {

// The folder of snapshot files, ".../Tarnwick/snapshots". Computed once; the
// first use creates it (and a failure to do so is left to the writers to report).
const std::filesystem::path& supportDir();

// The log file. Computed once, on first use.
const std::filesystem::path& logURL();

// Creates `folder` with its missing parents, ignoring every error, and returns
// it. The last `own` folders of the path are Tarnwick's and private to the
// user: made 0700, whatever the umask, and stripped of any access for group and
// others they already had. Other folders that exist are left exactly as they
// are; new ones are made 0700 too (less the umask).
std::filesystem::path prepareFolder(const std::filesystem::path& folder, size_t own = 0);

// Where this system keeps them; nothing when the user's base folders cannot be
// found at all. Implemented once per system (data_folder_mac.mm, _linux.cpp).
std::optional<std::filesystem::path> snapshotFolderLocation();
#if !defined(__APPLE__)
// The user's home: $HOME when it is absolute, else the password database's.
std::optional<std::filesystem::path> homeLocation();
// Where settings and autostart entries go: $XDG_CONFIG_HOME, else ~/.config.
std::optional<std::filesystem::path> configLocation();
#endif
std::optional<std::filesystem::path> logFileLocation();

}  // namespace tarnwick
