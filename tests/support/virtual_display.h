// A real X11 desktop for end-to-end tests: Xvfb with the openbox window
// manager, and a probe that sees windows as the window manager shows them,
// through its own connection and none of Tarnwick's code.
#pragma once

#include "scripting/child_process.h"

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick::testing {

struct Rect {
    int x = 0, y = 0, w = 0, h = 0;
};

// The program's path, looked up in PATH; stops the test run when it is missing,
// since the tests install it.
std::string programPath(const std::string& name);

// Runs `condition` every 20 ms until it holds or `seconds` of real time pass.
bool eventually(const std::function<bool()>& condition, double seconds = 10.0);

// The window manager the tests run: TARNWICK_TEST_WINDOW_MANAGER (openbox,
// xfwm4 or mutter; mutter wants a D-Bus session bus), openbox by default.
std::string testWindowManager();

// Xvfb on a free display number, with that window manager unless asked not to.
// DISPLAY names it while the object lives; programs started on it end with it.
class VirtualDisplay {
public:
    explicit VirtualDisplay(bool windowManager = true, int width = 1600, int height = 1000);
    ~VirtualDisplay();
    VirtualDisplay(const VirtualDisplay&) = delete;
    VirtualDisplay& operator=(const VirtualDisplay&) = delete;

    const std::string& name() const { return name_; }
    int width() const { return width_; }
    int height() const { return height_; }

    // Starts a program found in PATH, in `folder` when one is given; its pid.
    pid_t start(const std::string& program, const std::vector<std::string>& arguments,
                const std::string& folder = "");
    // Ends a program started here and reaps it.
    void quit(pid_t pid);

private:
    [[noreturn]] void abandon(const std::string& why);

    std::string name_;
    int width_, height_;
    std::optional<ChildProcess> server_;
    std::optional<ChildProcess> manager_;
    std::list<ChildProcess> programs_;
};

// A private D-Bus session bus for as long as the object lives, named by
// DBUS_SESSION_BUS_ADDRESS meanwhile: GTK programs of one test never meet
// those of another (a second gedit hands its work to the first it finds).
class SessionBus {
public:
    // DBUS_SESSION_BUS_ADDRESS, or another variable that names a bus
    // (DBUS_SYSTEM_BUS_ADDRESS: a private stand-in for the system bus).
    explicit SessionBus(std::string variable = "DBUS_SESSION_BUS_ADDRESS");
    ~SessionBus();
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

private:
    std::string variable_;
    std::optional<ChildProcess> daemon_;
    std::optional<std::string> previous_;
};

// A second client of the display that reads what the window manager did, and
// can make windows of its own.
class DisplayProbe {
public:
    DisplayProbe();
    ~DisplayProbe();
    DisplayProbe(const DisplayProbe&) = delete;
    DisplayProbe& operator=(const DisplayProbe&) = delete;

    // Whether a window manager has announced itself on the root window.
    bool windowManagerReady();
    // The name it gives itself.
    std::string windowManagerName();
    // _NET_CLIENT_LIST as the window manager publishes it.
    std::vector<std::uint32_t> clients();
    // The managed windows whose WM_CLASS class is this.
    std::vector<std::uint32_t> clientsOfClass(const std::string& wmClass);
    std::string wmClass(std::uint32_t window);
    // The outermost window the manager put around the client (its frame), in
    // root coordinates, border included: what the user sees.
    std::optional<Rect> frame(std::uint32_t window);
    bool hidden(std::uint32_t window);
    bool fullScreen(std::uint32_t window);
    // Maximized both ways.
    bool maximized(std::uint32_t window);
    // _NET_WM_DESKTOP: the workspace, counted from 0.
    std::optional<std::uint32_t> workspace(std::uint32_t window);
    // Every window of the display whose WM_CLASS class is this, managed or not,
    // at any depth (a tray icon sits inside the tray's window), outermost first.
    std::vector<std::uint32_t> windowsOfClass(const std::string& wmClass);
    // Where the window is on the screen, and whether it and its ancestors are mapped.
    std::optional<Rect> onScreen(std::uint32_t window);
    bool viewable(std::uint32_t window);
    // The windows whose parent is the root, mapped and not managed: menus and
    // other pop-ups.
    std::vector<std::uint32_t> popUps();
    // _NET_WM_PID, when the client says.
    std::optional<std::uint32_t> pid(std::uint32_t window);
    // What a pager asks of the window manager: another workspace, maximized or not.
    void requestWorkspace(std::uint32_t window, std::uint32_t workspace);
    void requestMaximized(std::uint32_t window, bool on);
    void requestFullScreen(std::uint32_t window, bool on);
    // The client's own ICCCM request to be iconified, as its minimize button sends.
    void requestIconify(std::uint32_t window);
    // A pager's request to bring the window forward, out of its icon too.
    void requestActivate(std::uint32_t window);

    // The client's own request to move and resize (the window manager decides).
    void configure(std::uint32_t window, int x, int y, unsigned w, unsigned h);
    // The client's own request to be shown, which takes it out of its icon.
    void map(std::uint32_t window);

    enum class Kind { normal, dialog, transient, untyped, dock };
    // A window of this process, with _NET_WM_PID, WM_CLASS "probe"/"Probe" and the
    // title as _NET_WM_NAME (or only as WM_NAME when `legacyTitle`), mapped.
    std::uint32_t createWindow(const std::string& title, Kind kind, std::uint32_t transientFor = 0,
                               bool legacyTitle = false);
    void destroyWindow(std::uint32_t window);
    void flush();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace tarnwick::testing
