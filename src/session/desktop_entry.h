// Desktop entries: how a Linux desktop knows its applications. The X11 backend
// names an application by the entry that matches its windows and relaunches it
// with the entry's command, as the user's launcher would.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwick::DesktopEntries {

struct Entry {
    std::string id;                // "org.gnome.Terminal.desktop": its path under applications/, '/' as '-'
    std::filesystem::path file;
    std::string name;
    std::string exec;              // the Exec value, unescaped, field codes still in it
    std::optional<std::string> icon;
    std::optional<std::string> startupWMClass;
};

// The folders searched, most important first: $XDG_DATA_HOME/applications,
// then applications/ in each of $XDG_DATA_DIRS (default /usr/local/share:/usr/share).
std::vector<std::filesystem::path> applicationFolders();

// The entry in one file; nothing for a file that is not a launchable
// application (no [Desktop Entry], another Type, Hidden, no Exec, a TryExec
// that is not there, or an Exec that does not parse).
std::optional<Entry> read(const std::filesystem::path& file, const std::string& id);

// Every launchable entry in the folders; an id found twice counts from the
// first folder only, as the desktop's own menus do.
std::vector<Entry> all(const std::vector<std::filesystem::path>& folders);

// The command line the entry starts, with its field codes expanded for a start
// without files ("%f" and "%U" vanish, "%c" is the name, "%i" the icon option,
// "%k" the file); nothing when the quoting is broken.
std::optional<std::vector<std::string>> arguments(const Entry& entry);

// The entry for windows of this WM_CLASS (instance, class): one whose
// StartupWMClass is the class, then the instance; else one whose file name,
// less ".desktop", is the class or the instance, ignoring case.
std::optional<Entry> match(const std::vector<Entry>& entries, std::string_view instance, std::string_view wmClass);

}  // namespace tarnwick::DesktopEntries
