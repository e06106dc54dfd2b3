// Two outputs on a real headless KWin (--output-count 2): the output each
// window is on is recorded by name, a window goes back to the second output
// while it is there, and onto the first, whole, once it is gone. The X11
// backend reads the same two outputs as RandR monitors through XWayland.
#include "access/axo.h"
#include "platform/kwin/kwin_platform.h"
#include "platform/kwin/kwin_scripts.h"
#include "platform/x11/platform_x11.h"
#include "session/capture.h"
#include "session/restore.h"
#include "support/kwin_session.h"
#include "support/sim_desktop.h"
#include "support/virtual_display.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

namespace tarnwick {
namespace {

using testing::eventually;
using testing::KWinBuild;
using testing::KWinSession;
using testing::forWindow;
using testing::KWinWindow;
using testing::ScopedPlatform;

const char* const westonTitle = "Wayland Terminal";
const char* const xtermTitle = "xterm";
// weston-terminal sizes itself in whole rows of text: a height it is given
// may come out up to a row shorter.
constexpr double westonRowHeight = 20;

// A KWin script's body for the window of this title, on KWin 5 and 6 alike.
std::optional<KWinWindow> titled(KWinSession& session, const std::string& title) {
    for (KWinWindow& window : session.windows())
        if (window.caption == title) return window;
    return std::nullopt;
}

const WindowState* captured(const Snapshot& snapshot, const std::string& title) {
    for (const AppState& app : snapshot.apps)
        for (const WindowState& window : app.windows)
            if (window.title == title) return &window;
    return nullptr;
}

// A KWin session with weston-terminal (Wayland) and xterm (XWayland), and the
// KWin backend installed on it.
struct Desktop {
    Desktop(KWinBuild build, int outputs) : session(std::make_unique<KWinSession>(build, outputs)) {
        if (!session->running()) return;
        session->start("weston-terminal", {});
        session->start("xterm", {});
        shown = eventually([&] { return session->windows().size() == 2; }, 20.0);
        std::string why;
        backend = openKWinPlatform(why);
        if (backend) installPlatform(backend.get());
    }
    ~Desktop() {
        installPlatform(nullptr);
        backend.reset();
        session.reset();
    }

    std::unique_ptr<KWinSession> session;
    std::unique_ptr<Platform> backend;
    bool shown = false;
};

class KWinOutputsTest : public ::testing::TestWithParam<KWinBuild> {};

TEST_P(KWinOutputsTest, AWindowOnTheSecondOutputComesBackThereAndOntoTheFirstWholeWhenItIsGone) {
    Snapshot snapshot;
    {
        Desktop two(GetParam(), 2);
        if (!two.session->running()) GTEST_SKIP() << "no headless KWin here: " << two.session->whyNot();
        ASSERT_TRUE(two.shown) << "the two programs did not both show a window";
        ASSERT_TRUE(two.backend);
        EXPECT_EQ(two.backend->outputs(), (std::vector<Output>{{"Virtual-0", Frame{0, 0, 1280, 800}},
                                                                {"Virtual-1", Frame{1280, 0, 1280, 800}}}))
            << "KWin 5 names its outputs only in its support information, KWin 6 to scripts";

        two.session->script(forWindow(westonTitle, "c.frameGeometry = {x: 1500, y: 120, width: 600, height: 400};") +
                            forWindow(xtermTitle, "c.frameGeometry = {x: 100, y: 100, width: 500, height: 350};"));
        ASSERT_TRUE(eventually([&] {
            auto window = titled(*two.session, westonTitle);
            return window && window->x == 1500;
        }));
        snapshot = Capture::snapshot("test");
        ASSERT_NE(captured(snapshot, westonTitle), nullptr);
        ASSERT_NE(captured(snapshot, xtermTitle), nullptr);
        EXPECT_EQ(captured(snapshot, westonTitle)->output, "Virtual-1");
        EXPECT_EQ(captured(snapshot, xtermTitle)->output, "Virtual-0");

        // The user drags it to the first output; the restore takes it back.
        two.session->script(forWindow(westonTitle, "c.frameGeometry = {x: 200, y: 300, width: 600, height: 400};"));
        ASSERT_TRUE(eventually([&] {
            auto window = titled(*two.session, westonTitle);
            return window && window->x == 200;
        }));
        Restore::Result result = Restore::run(snapshot, nullptr);
        EXPECT_EQ(result.windows, 2);
        std::optional<KWinWindow> back;
        EXPECT_TRUE(eventually([&] {
            back = titled(*two.session, westonTitle);
            return back && std::abs(back->x - 1500) <= 2 && std::abs(back->y - 120) <= 2;
        }, 3.0));
        ASSERT_TRUE(back);
        EXPECT_NEAR(back->x, 1500, 2);
        EXPECT_NEAR(back->y, 120, 2);
        EXPECT_NEAR(back->width, 600, 2);
    }

    // The second monitor unplugged: the same snapshot on a desktop of one output.
    Desktop one(GetParam(), 1);
    ASSERT_TRUE(one.session->running()) << one.session->whyNot();
    ASSERT_TRUE(one.shown);
    ASSERT_TRUE(one.backend);
    Restore::Result result = Restore::run(snapshot, nullptr);
    EXPECT_EQ(result.windows, 2);
    std::optional<KWinWindow> moved, kept;
    auto placed = [&] {
        moved = titled(*one.session, westonTitle);
        kept = titled(*one.session, xtermTitle);
        return moved && kept && std::abs(moved->x - 680) <= 2 && std::abs(kept->x - 100) <= 2;
    };
    EXPECT_TRUE(eventually(placed, 3.0));
    ASSERT_TRUE(moved && kept);
    // Wholly on the one output, as near as it gets to where it was.
    EXPECT_NEAR(moved->x, 1280 - 600, 2);
    EXPECT_NEAR(moved->y, 120, 2);
    EXPECT_NEAR(moved->width, 600, 2);
    EXPECT_NEAR(moved->height, 400, westonRowHeight);
    EXPECT_NEAR(kept->x, 100, 2);
    EXPECT_NEAR(kept->y, 100, 2);
}

// XWayland shows KWin's outputs to X11 clients as RandR monitors: the X11
// backend, as it runs in any X11 session with several monitors, finds both
// and names the one a window is on.
TEST_P(KWinOutputsTest, TheX11BackendReadsTheOutputsAsRandRMonitors) {
    KWinSession session(GetParam(), 2);
    if (!session.running()) GTEST_SKIP() << "no headless KWin here: " << session.whyNot();
    session.start("xterm", {});
    ASSERT_TRUE(eventually([&] { return session.windows().size() == 1; }, 20.0));
    session.script(forWindow(xtermTitle, "c.frameGeometry = {x: 1400, y: 200, width: 500, height: 350};"));
    ASSERT_TRUE(eventually([&] {
        auto window = titled(session, xtermTitle);
        return window && window->x == 1400;
    }));

    std::string why;
    auto x11 = openX11Platform(session.x11Display(), why);
    ASSERT_TRUE(x11) << why;
    std::vector<Output> outputs = x11->outputs();
    ASSERT_EQ(outputs.size(), 2u);
    EXPECT_EQ(outputs[0].frame, (Frame{0, 0, 1280, 800}));
    EXPECT_EQ(outputs[1].frame, (Frame{1280, 0, 1280, 800}));
    EXPECT_NE(outputs[0].name, outputs[1].name);

    ScopedPlatform installed(*x11);
    std::optional<std::string> output;
    for (const App& app : x11->runningApplications())
        for (const Element& window : AXO::windows(x11->appInfo(app).pid)) {
            WindowState state = AXO::state(window);
            AXO::addWindowManagerState(window, state);
            if (state.title == xtermTitle) output = state.output;
        }
    EXPECT_EQ(output, outputs[1].name);
}

// Two copies of a program that never names its process (xlogo), one on top
// of the other: each window is found its own process, so each is captured
// as a program of its own.
TEST_P(KWinOutputsTest, TwoAlikeXWaylandWindowsAtOnePlaceAreEachCapturedWithTheirOwnProcess) {
    KWinSession session(GetParam());
    if (!session.running()) GTEST_SKIP() << "no headless KWin here: " << session.whyNot();
    pid_t first = session.start("xlogo", {});
    pid_t second = session.start("xlogo", {});
    ASSERT_TRUE(eventually([&] { return session.windows().size() == 2; }, 20.0));
    // Asked again until both hold: a window just mapped may pass over the first request.
    ASSERT_TRUE(eventually([&] {
        // KWin 5 calls the second one "xlogo <2>".
        session.script("var l = typeof workspace.windowList === \"function\" ? workspace.windowList() : "
                       "workspace.clientList();\n"
                       "for (var i = 0; i < l.length; ++i) if (String(l[i].caption).indexOf(\"xlogo\") === 0) "
                       "l[i].frameGeometry = {x: 300, y: 200, width: 250, height: 250};\n");
        auto windows = session.windows();
        return windows.size() == 2 && windows[0].x == 300 && windows[1].x == 300 && windows[0].y == windows[1].y &&
               windows[0].width == windows[1].width;
    }));
    std::string why;
    auto backend = openKWinPlatform(why);
    ASSERT_TRUE(backend) << why;
    ScopedPlatform installed(*backend);
    std::vector<std::int32_t> pids;
    for (const App& app : backend->runningApplications()) pids.push_back(backend->appInfo(app).pid);
    std::sort(pids.begin(), pids.end());
    std::vector<std::int32_t> started{first, second};
    std::sort(started.begin(), started.end());
    EXPECT_EQ(pids, started);
    Snapshot snapshot = Capture::snapshot("test");
    size_t logos = 0;
    for (const AppState& app : snapshot.apps)
        if (app.windows.size() == 1 && app.windows[0].title.value_or("").rfind("xlogo", 0) == 0) ++logos;
    EXPECT_EQ(logos, 2u);
}

INSTANTIATE_TEST_SUITE_P(kwin, KWinOutputsTest, ::testing::Values(KWinBuild::installed, KWinBuild::debian13),
                         [](const ::testing::TestParamInfo<KWinBuild>& build) { return testing::nameOf(build.param); });

TEST(KWinOutputsText, TheSupportInformationNamesEachScreenWithItsGeometry) {
    const std::string text =
        "Screens\n=======\nNumber of Screens: 3\n\nScreen 0:\n---------\nName: DP-1\nEnabled: 1\n"
        "Geometry: 0,0,2560x1440\nScale: 1.5\nScreen 1:\n---------\nName: HDMI-A-1\nEnabled: 1\n"
        "Geometry: -1920,200,1920x1080\n"
        // A screen whose geometry does not read is left out, and so is a name without a screen after it.
        "Screen 2:\n---------\nName: broken\nGeometry: wide\n\nCompositing\n===========\nName: OpenGL\n";
    EXPECT_EQ(KWin::outputsDescribed(text), (std::vector<Output>{{"DP-1", Frame{0, 0, 2560, 1440}},
                                                                 {"HDMI-A-1", Frame{-1920, 200, 1920, 1080}}}));
    EXPECT_TRUE(KWin::outputsDescribed("").empty());
}

}  // namespace
}  // namespace tarnwick
