// A real KDE Plasma Wayland desktop for end-to-end tests: a headless KWin with
// XWayland on a private socket and a private D-Bus session bus, and a probe
// that asks KWin what it shows through KWin's own interfaces, none of Tarnwick's code.
#pragma once

#include "scripting/child_process.h"

#include <cstdint>
#include <filesystem>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace tarnwick::testing {

// A window as KWin reports it: getWindowInfo on D-Bus, and a script's listing
// for what that leaves out (pid, desktop number).
struct KWinWindow {
    std::string id;
    std::string caption;
    std::string resourceClass;
    std::int32_t pid = 0;
    std::int64_t desktop = 0;  // counted from 1, -1 on all
    double x = 0, y = 0, width = 0, height = 0;
    bool minimized = false;
    bool fullScreen = false;
    bool maximizedHorizontally = false;
    bool maximizedVertically = false;
};

// Which KWin a session runs: the machine's own (5.27 on Debian 12), or KWin 6
// from the Debian 13 root that tools/make-debian13-root makes, run in a private
// mount namespace while the programs stay outside and reach it through its
// sockets.
enum class KWinBuild { installed, debian13 };

// A name for test output: "installed", "debian13".
const char* nameOf(KWinBuild build);
// How GoogleTest prints one.
void PrintTo(KWinBuild build, std::ostream* out);

// Where tools/make-debian13-root puts the root: $TARNWICK_DEBIAN13_ROOT, or its default.
std::filesystem::path debian13Root();

// While the object lives, WAYLAND_DISPLAY, DISPLAY (XWayland),
// DBUS_SESSION_BUS_ADDRESS and XDG_RUNTIME_DIR name its desktop; everything
// it started, and every program still running on its display, is ended with
// it, also when a test fails.
class KWinSession {
public:
    // `outputs` virtual screens of width x height, and `desktops` virtual desktops.
    explicit KWinSession(KWinBuild build = KWinBuild::installed, int outputs = 1, int desktops = 4, int width = 1280,
                         int height = 800);
    ~KWinSession();
    KWinSession(const KWinSession&) = delete;
    KWinSession& operator=(const KWinSession&) = delete;

    // Whether KWin runs; when not, why (one line), for the test to skip.
    bool running() const { return whyNot_.empty(); }
    const std::string& whyNot() const { return whyNot_; }

    const std::string& waylandDisplay() const { return wayland_; }
    const std::string& x11Display() const { return x11_; }
    const std::string& busAddress() const { return bus_; }

    // Starts a program found in PATH on this desktop, with extra environment
    // variables ("GDK_BACKEND=wayland"); its pid.
    pid_t start(const std::string& program, const std::vector<std::string>& arguments,
                const std::vector<std::string>& environment = {});
    // Ends a program started here (its process group) and reaps it.
    void quit(pid_t pid);
    // The programs started here that still run, in the order they were started.
    std::vector<pid_t> programs() const;

    // Every window KWin manages, in its order.
    std::vector<KWinWindow> windows();
    // The same, by title (of two with one title, the later).
    std::map<std::string, KWinWindow> windowsByTitle();
    // Runs a KWin script (JavaScript) and returns once it has run. Whatever
    // KWin it runs on, the script can use kwinWindows() for the windows,
    // desktopOf(window) for a window's desktop (counted from 1, -1 on all),
    // moveToDesktop(window, number), -1 for all, and showDesktop(number).
    void script(const std::string& source);
    // Whether KWin has a script of this name loaded, as KWin's scripting
    // interface tells; and unloading one, as any client of the bus can.
    bool scriptLoaded(const std::string& name);
    void unloadScript(const std::string& name);
    // Loads an empty script under this name, not run, to stay until unloaded.
    bool loadScript(const std::string& name);
    // Stops every script loaded in KWin, whoever loaded it.
    void stopEveryScript();

private:
    std::optional<std::string> call(const std::vector<std::string>& arguments);
    std::set<int> publishedScripts();
    std::optional<KWinWindow> info(const std::string& id);

    std::unique_ptr<class TempDir> folder_;
    std::string whyNot_;
    std::string wayland_, x11_, bus_;
    std::map<std::string, std::optional<std::string>> previous_;
    std::optional<ChildProcess> daemon_;
    std::optional<ChildProcess> kwin_;
    std::list<ChildProcess> programs_;
    int scripts_ = 0;
    std::string scriptPrefix_;  // where KWin exports a loaded script, before its number
};

// A body of script() for the window of this title, which it names `c`.
std::string forWindow(const std::string& title, const std::string& body);

}  // namespace tarnwick::testing
