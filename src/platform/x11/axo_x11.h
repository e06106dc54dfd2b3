// The window half of the X11 backend: the window manager's EWMH hints read and
// requested through one xcb connection, in the platform's portable types.
//
// Elements are client windows (or, for "AXWindows", an application's process);
// the attributes keep their Accessibility names so the logic above is shared:
//   "AXWindows"   the managed client windows (_NET_CLIENT_LIST) of the process
//   "AXSubrole"   "AXStandardWindow" for a normal window that is not transient
//   "AXTitle"     _NET_WM_NAME, else WM_NAME
//   "AXPosition"  "AXSize"  the frame the window manager draws, in root coordinates
//   "AXMinimized" "AXFullScreen"  _NET_WM_STATE hidden and fullscreen
// and, only here, the window manager's own states (names in platform/platform.h):
//   workspace     _NET_WM_DESKTOP, -1 for every workspace
//   maximized     _NET_WM_STATE maximized horizontally and vertically
//   output        the RandR monitor that shows the largest part of the frame
#pragma once

#include "platform/platform.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick::AXX11 {

using WindowID = std::uint32_t;

// WM_CLASS: the instance and class names a window gives itself.
struct WindowClass {
    std::string instance;
    std::string wmClass;
};

// One connection to the X server. Safe to use from several threads: xcb
// serialises requests, and the pid cache has its own lock.
class Connection {
public:
    // Opens `display` (empty: $DISPLAY); nothing when that fails, with a reason
    // fit for one line.
    static std::unique_ptr<Connection> open(const std::string& display, std::string& why);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Whether a window manager that follows EWMH is running on the screen.
    bool windowManagerAnswers();
    // The name it gives itself (_NET_WM_NAME of its check window).
    std::optional<std::string> windowManagerName();
    // Whether the connection broke (the server went away); for good, then:
    // every request fails and every reply is missing.
    bool lost();
    // The monitors, as RandR 1.5 tells them; none from an older server.
    std::vector<Output> outputs();

    // Managed client windows in the window manager's order, and their owners.
    std::vector<WindowID> clientWindows();
    std::optional<std::int32_t> windowPid(WindowID window);
    std::vector<WindowID> windowsOf(std::int32_t pid);
    std::optional<WindowClass> windowClass(WindowID window);
    // The application id a GTK program gives its windows (_GTK_APPLICATION_ID).
    std::optional<std::string> gtkApplicationId(WindowID window);
    // A panel, a dock or the desktop's own background window.
    bool partOfTheDesktop(WindowID window);
    std::optional<WindowID> activeWindow();
    void activateWindow(WindowID window);
    bool minimized(WindowID window);

    // The element surface of the seam.
    Element application(std::int32_t pid);
    std::optional<AttrValue> copyAttribute(const Element& element, const std::string& name);
    void setAttribute(const Element& element, const std::string& name, const AttrValue& value);
    bool sameElement(const Element& a, const Element& b);

private:
    struct State;
    explicit Connection(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

}  // namespace tarnwick::AXX11
