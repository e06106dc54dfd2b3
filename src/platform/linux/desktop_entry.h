// Desktop entries: how a Linux desktop knows its applications. The X11 backend
// names an application by the entry that matches its windows and relaunches it
// with the entry's command, as the user's launcher would.
#pragma once

#include "model/unique_fd.h"

#include <filesystem>
#include <memory>
#include <mutex>
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
    std::vector<std::string> categories = {};  // "TerminalEmulator" marks a terminal
    std::string program = {};                  // the Exec line's program, without its folder ("gedit")
    // The Exec value of the entry's "new-window" action, when it lists one: how
    // a running program that holds several windows is asked for one more.
    std::optional<std::string> newWindowExec = std::nullopt;

    // Whether it is a terminal: its windows stand for shells in a folder.
    bool terminal() const;
};

// What a window says of the program behind it.
struct WindowIdentity {
    std::string_view instance;           // WM_CLASS
    std::string_view wmClass;
    std::string_view gtkApplicationId;   // _GTK_APPLICATION_ID, the GApplication's (and D-Bus) name
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

// The entries of the application folders for a long-running process, which
// sees programs installed and removed while it runs. They are read again when
// the folders differ from those read, or something changed in one of them or
// of the folders in them: the kernel tells of every entry written, removed or
// renamed (inotify), so a check costs one read that finds nothing, and a stat
// per folder that was not there. Where the kernel will not watch them, a
// folder's modification time tells instead, at a stat per folder: writing,
// removing or renaming an entry changes it (rewriting a file in place does
// not). Safe to use from several threads.
class Catalog {
public:
    // How changes are noticed: the kernel tells, or the folders' times alone.
    enum class Noticing { kernel, folderTimes };
    explicit Catalog(Noticing noticing = Noticing::kernel) : noticing_(noticing) {}

    // The entries as the folders are now; callers keep what they got for as
    // long as they use it.
    std::shared_ptr<const std::vector<Entry>> current();

private:
    using Stamp = std::pair<std::filesystem::path, std::optional<std::filesystem::file_time_type>>;
    static std::optional<std::filesystem::file_time_type> modified(const std::filesystem::path& folder);
    bool unchangedLocked();

    const Noticing noticing_;
    std::mutex lock_;
    std::string environment_;    // what the folders were found from, as last read
    std::vector<Stamp> stamps_;  // the folders and every folder in them, when read
    UniqueFd watch_;             // inotify on each of them that was there; none where refused
    std::shared_ptr<const std::vector<Entry>> entries_;
};

// The command line the entry starts, with its field codes expanded for a start
// without files ("%f" and "%U" vanish, "%c" is the name, "%i" the icon option,
// "%k" the file); nothing when the quoting is broken.
std::optional<std::vector<std::string>> arguments(const Entry& entry);

// The command line of the installed entry whose file is at `path`: only an
// entry the application folders hold starts, never a file named from elsewhere.
// Nothing, with the reason in `why`, otherwise.
std::optional<std::vector<std::string>> installedArguments(const std::vector<Entry>& installed,
                                                           const std::filesystem::path& path, std::string& why);

// The command line of the entry's "new-window" action, expanded as
// `arguments` expands the entry's own; nothing when it has none or it does not parse.
std::optional<std::vector<std::string>> newWindowArguments(const Entry& entry);

// The entry for a window, as desktop shells find it, first rule that finds one:
// StartupWMClass is the class, then the instance; the file name less ".desktop"
// is the application id; the file name is the class or the instance, or ends
// in "." and one of them, ignoring case; the Exec line's program is the
// instance or the class, ignoring case.
std::optional<Entry> match(const std::vector<Entry>& entries, const WindowIdentity& window);

}  // namespace tarnwick::DesktopEntries
