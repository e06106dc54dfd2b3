// Entry::candidates and openDesktop: which backend a session gets.
#include "main/desktop.h"

#include "support/scoped_variable.h"

#include <gtest/gtest.h>

namespace tarnwick::testing {
namespace {

using Entry::Backend;
using Entry::Session;

std::vector<Backend> candidates(const Session& session) {
    std::string why;
    auto found = Entry::candidates(session, why);
    EXPECT_EQ(found.empty(), !why.empty()) << why;
    return found;
}

TEST(DesktopChoice, AnX11SessionGetsX11) {
    Session session;
    session.display = ":0";
    EXPECT_EQ(candidates(session), std::vector<Backend>{Backend::x11});
}

TEST(DesktopChoice, AWaylandSessionGetsItsCompositorNeverX11) {
    Session plasma;
    plasma.sessionType = "wayland";
    plasma.waylandDisplay = "wayland-0";
    plasma.currentDesktop = "KDE";
    plasma.display = ":1";  // XWayland's, which shows the X11 programs alone
    EXPECT_EQ(candidates(plasma), std::vector<Backend>{Backend::kwin});
    // Some ways of starting a session set no type or desktop.
    Session bare;
    bare.waylandDisplay = "wayland-0";
    EXPECT_EQ(candidates(bare), std::vector<Backend>{Backend::kwin});
    Session typed;
    typed.sessionType = "wayland";
    EXPECT_EQ(candidates(typed), std::vector<Backend>{Backend::kwin});
}

TEST(DesktopChoice, TheVariableOverridesTheSession) {
    Session session;
    session.waylandDisplay = "wayland-0";
    session.display = ":1";
    session.backend = "x11";
    EXPECT_EQ(candidates(session), std::vector<Backend>{Backend::x11});
    session.backend = "kwin";
    session.waylandDisplay.reset();
    EXPECT_EQ(candidates(session), std::vector<Backend>{Backend::kwin});
    session.backend = "gnome";
    std::string why;
    EXPECT_TRUE(Entry::candidates(session, why).empty());
    EXPECT_EQ(why, "TARNWICK_BACKEND=gnome names no backend (x11 or kwin)");
}

TEST(DesktopChoice, NoSessionAtAllSaysSo) {
    std::string why;
    EXPECT_TRUE(Entry::candidates(Session{}, why).empty());
    EXPECT_EQ(why, "no desktop: neither a Wayland session nor an X11 display (DISPLAY is not set)");
}

TEST(DesktopChoice, AWaylandSessionWithoutKWinIsNamedAndNotServed) {
    // A session bus that is not there: no KWin answers on it.
    ScopedVariable bus("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/tarnwick-test-bus");
    Session gnome;
    gnome.sessionType = "wayland";
    gnome.waylandDisplay = "wayland-0";
    gnome.currentDesktop = "GNOME";
    gnome.display = ":1";
    std::string why;
    EXPECT_EQ(Entry::openDesktop(gnome, why), nullptr);
    EXPECT_EQ(why.rfind("a Wayland session of GNOME, whose compositor Tarnwick cannot list or place windows in yet (it "
                        "serves X11 window managers and KDE Plasma's KWin; ",
                        0),
              0u)
        << why;
    // The tray's menu gives it in one short line, without what was asked on the bus.
    std::string summary;
    EXPECT_EQ(Entry::openDesktop(gnome, why, summary), nullptr);
    EXPECT_EQ(summary, "Tarnwick cannot list or place windows in a Wayland session of GNOME yet");
    // Any other reason is short already, and given whole.
    Session misnamed;
    misnamed.backend = "gnome";
    EXPECT_EQ(Entry::openDesktop(misnamed, why, summary), nullptr);
    EXPECT_EQ(summary, "TARNWICK_BACKEND=gnome names no backend (x11 or kwin)");
    EXPECT_EQ(summary, why);
}

}  // namespace
}  // namespace tarnwick::testing
