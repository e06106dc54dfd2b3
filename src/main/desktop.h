// Which desktop backend serves this session, chosen once at start.
#pragma once

#include "platform/platform.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick::Entry {

enum class Backend { x11, kwin };

// "x11", "kwin": the names TARNWICK_BACKEND takes.
std::string backendName(Backend backend);

// What the session says of itself, from the environment.
struct Session {
    std::optional<std::string> backend;         // TARNWICK_BACKEND: the user's or a test's choice
    std::optional<std::string> sessionType;     // XDG_SESSION_TYPE
    std::optional<std::string> waylandDisplay;  // WAYLAND_DISPLAY
    std::optional<std::string> currentDesktop;  // XDG_CURRENT_DESKTOP
    std::optional<std::string> display;         // DISPLAY

    static Session current();
    bool wayland() const;
};

// The backends to try for the session, in order. Wayland has no common way for
// one program to list and place another's windows, so a Wayland session gets
// its compositor's backend (KWin, asked on the session bus), never X11, which
// would see the XWayland windows alone and take them for the whole session.
// Empty, with the reason in `why`, when the session has nothing Tarnwick serves.
std::vector<Backend> candidates(const Session& session, std::string& why);

#if !defined(__APPLE__)
// The first candidate that opens; nothing, with a one-line reason, otherwise.
std::unique_ptr<Platform> openDesktop(const Session& session, std::string& why);
// The same, and when nothing opens, the reason once more in `summary`, short
// enough for a line of the tray's menu: on a Wayland session whose compositor
// Tarnwick does not serve, that it cannot reach the windows there, without
// what was asked and answered on the way; otherwise all of `why`.
std::unique_ptr<Platform> openDesktop(const Session& session, std::string& why, std::string& summary);
#endif

}  // namespace tarnwick::Entry
