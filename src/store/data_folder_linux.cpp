// Data and log locations on Linux, after the XDG base-directory rules.
#include "store/data_folder.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

#if defined(__APPLE__)
#error "data_folder_linux.cpp is for Linux; macOS uses data_folder_mac.mm"
#endif

namespace tarnwick {

std::optional<std::filesystem::path> homeLocation() {
    if (const char* h = std::getenv("HOME"); h && *h == '/') return std::filesystem::path(h);
    if (const passwd* pw = getpwuid(getuid()); pw && pw->pw_dir && *pw->pw_dir == '/')
        return std::filesystem::path(pw->pw_dir);
    return std::nullopt;
}

namespace {

// An XDG variable counts only when it holds an absolute path.
std::optional<std::filesystem::path> xdg(const char* variable, const char* fallbackUnderHome) {
    if (const char* v = std::getenv(variable); v && *v == '/') return std::filesystem::path(v);
    if (auto h = homeLocation()) return *h / fallbackUnderHome;
    return std::nullopt;
}

}  // namespace

std::optional<std::filesystem::path> configLocation() { return xdg("XDG_CONFIG_HOME", ".config"); }

std::optional<std::filesystem::path> snapshotFolderLocation() {
    auto base = xdg("XDG_DATA_HOME", ".local/share");
    if (!base) return std::nullopt;
    return *base / "Tarnwick" / "snapshots";
}

std::optional<std::filesystem::path> logFileLocation() {
    auto base = xdg("XDG_STATE_HOME", ".local/state");
    if (!base) return std::nullopt;
    // Unlike ~/Library/Logs on a Mac, nobody else makes this folder.
    return prepareFolder(*base / "Tarnwick", 1) / "Tarnwick.log";
}

}  // namespace tarnwick
