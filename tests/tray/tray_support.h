// What the tray application's end-to-end tests share, whatever desktop they
// run on: a program of the test read line by line, a user of the tray's own
// (home, settings, data and log folders), and a panel's side of the tray: a
// real StatusNotifierItem watcher and tray, and the application's menu read and
// used over D-Bus as a desktop panel does.
#pragma once

#include "scripting/child_process.h"
#include "support/scoped_variable.h"
#include "support/temp_dir.h"

#include <QDBusConnection>
#include <QString>
#include <QVariant>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick::testing {

// A program of the test with its standard output read line by line; ended
// when the object goes, also when the test fails.
class Program {
public:
    Program(const std::string& path, const std::vector<std::string>& arguments);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // The next line that starts with `prefix`, waiting up to `seconds`.
    std::optional<std::string> lineStartingWith(const std::string& prefix, double seconds = 15.0);
    void tell(const std::string& line);
    // The exit status once it ended within `seconds`.
    std::optional<int> exited(double seconds);
    pid_t pid() const { return child_ ? child_->pid() : 0; }

private:
    std::optional<ChildProcess> child_;
    std::string buffer_;
    std::optional<int> status_;
};

// One item of the menu as a tray host reads it over D-Bus.
struct Item {
    int id = 0;
    std::string label;
    bool enabled = true;
    bool separator = false;
    bool checked = false;
    std::vector<Item> children;
};

// "---" for a separator, else the label, "(on)" when checked, "(disabled)",
// and ">N" for a submenu of N items.
std::vector<std::string> rows(const std::vector<Item>& items);
// The item of this label, at any depth.
const Item* find(const std::vector<Item>& items, const std::string& label);

std::vector<std::string> fileLines(const std::filesystem::path& file);

// A user of the tray's own for as long as the object lives: HOME and the XDG
// folders name folders of a temporary one, so that nothing of the host's
// settings, snapshots or autostart entries is read or touched.
class TrayUser {
public:
    TrayUser();

    const TempDir& dir() const { return dir_; }
    std::filesystem::path home() const { return dir_.path() / "home"; }
    std::filesystem::path runtime() const { return dir_.path() / "runtime"; }
    std::filesystem::path config() const { return dir_.path() / "config"; }
    std::filesystem::path snapshots() const { return dir_.path() / "share" / "Tarnwick" / "snapshots"; }
    std::filesystem::path logFile() const { return dir_.path() / "state" / "Tarnwick" / "Tarnwick.log"; }
    std::filesystem::path autostart() const { return config() / "autostart" / "com.tarnwick.Tarnwick.desktop"; }

    bool logHas(const std::string& text) const;
    // The log's lines that hold `text`, without their time stamps.
    std::vector<std::string> logLinesWith(const std::string& text) const;
    // The stored snapshots, oldest first.
    std::vector<std::filesystem::path> snapshotFiles() const;

private:
    TempDir dir_{"tarnwick-tray"};
    ScopedVariable home_{"HOME", (dir_.path() / "home").string()};
    ScopedVariable config_{"XDG_CONFIG_HOME", (dir_.path() / "config").string()};
    ScopedVariable data_{"XDG_DATA_HOME", (dir_.path() / "share").string()};
    ScopedVariable state_{"XDG_STATE_HOME", (dir_.path() / "state").string()};
    ScopedVariable runtime_{"XDG_RUNTIME_DIR", (dir_.path() / "runtime").string()};
};

// A desktop panel's tray on the session bus DBUS_SESSION_BUS_ADDRESS names:
// status-notifier-watcher, with gtk-sni-tray-standalone as the tray that
// shows the items, and a connection of the test's own that reads and uses the
// application's item and menu as the panel does.
class TrayPanel {
public:
    // `host` starts the tray: the program's path and its arguments.
    explicit TrayPanel(const std::vector<std::string>& host);
    ~TrayPanel();
    TrayPanel(const TrayPanel&) = delete;
    TrayPanel& operator=(const TrayPanel&) = delete;

    // Starts the watcher and the tray and waits until the tray registered.
    void start();
    QDBusConnection& bus() { return *bus_; }
    QVariant watcherProperty(const char* name);

    // The tray item the application registered with the watcher, and the
    // path of its menu, as a tray finds them.
    void findItem();
    // The menu as it is about to open, read as a tray host reads it.
    std::vector<Item> openMenu();
    // Chooses the item as a click in the host's menu does: by its label, or
    // by its place in a submenu.
    void choose(const std::string& label, std::optional<size_t> position = std::nullopt);
    // A click on the icon itself, at this place on the screen.
    void activate(int x, int y);

private:
    std::vector<std::string> hostCommand_;
    QString connection_;
    std::optional<QDBusConnection> bus_;
    std::optional<Program> watcher_, host_;
    QString itemService_, menuPath_;
};

}  // namespace tarnwick::testing
