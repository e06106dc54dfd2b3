// Choosing the Linux desktop backend: X11, or KWin on a Plasma Wayland session.
#include "main/desktop.h"

#include "platform/kwin/kwin_platform.h"
#include "platform/x11/platform_x11.h"
#include "store/log.h"

#include <cstdlib>

#if defined(__APPLE__)
#error "desktop_linux.cpp is for Linux; a Mac has one backend"
#endif

namespace tarnwick::Entry {

namespace {

std::optional<std::string> variable(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') return std::nullopt;
    return std::string(value);
}

// "a Wayland session of GNOME", or without a desktop name.
std::string waylandSession(const Session& session) {
    return session.currentDesktop ? "a Wayland session of " + *session.currentDesktop
                                  : std::string("a Wayland session");
}

}  // namespace

std::string backendName(Backend backend) { return backend == Backend::kwin ? "kwin" : "x11"; }

Session Session::current() {
    return Session{variable("TARNWICK_BACKEND"), variable("XDG_SESSION_TYPE"), variable("WAYLAND_DISPLAY"),
                   variable("XDG_CURRENT_DESKTOP"), variable("DISPLAY")};
}

bool Session::wayland() const { return sessionType == "wayland" || waylandDisplay.has_value(); }

std::vector<Backend> candidates(const Session& session, std::string& why) {
    if (session.backend) {
        for (Backend backend : {Backend::x11, Backend::kwin})
            if (*session.backend == backendName(backend)) return {backend};
        why = "TARNWICK_BACKEND=" + *session.backend + " names no backend (x11 or kwin)";
        return {};
    }
    // KWin is asked whatever XDG_CURRENT_DESKTOP says: not every way of
    // starting a session sets it.
    if (session.wayland()) return {Backend::kwin};
    if (session.display) return {Backend::x11};
    why = "no desktop: neither a Wayland session nor an X11 display (DISPLAY is not set)";
    return {};
}

std::unique_ptr<Platform> openDesktop(const Session& session, std::string& why) {
    std::string summary;
    return openDesktop(session, why, summary);
}

std::unique_ptr<Platform> openDesktop(const Session& session, std::string& why, std::string& summary) {
    // What a backend cannot tell any caller goes to the program's log.
    setPlatformLog([](const std::string& line) { log(line); });
    for (Backend backend : candidates(session, why)) {
        std::unique_ptr<Platform> opened = backend == Backend::kwin ? openKWinPlatform(why) : openX11Platform("", why);
        if (opened) return opened;
        if (backend == Backend::kwin && session.wayland() && !session.backend) {
            why = waylandSession(session) + ", whose compositor Tarnwick cannot list or place windows in yet (it "
                  "serves X11 window managers and KDE Plasma's KWin; " + why + ")";
            summary = "Tarnwick cannot list or place windows in " + waylandSession(session) + " yet";
            return nullptr;
        }
    }
    summary = why;
    return nullptr;
}

}  // namespace tarnwick::Entry
