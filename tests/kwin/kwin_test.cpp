// The KWin backend against a real headless KWin: Wayland-native programs
// (weston-terminal, GTK's gtk3-demo, gedit with two windows in one process,
// mousepad, and qt6ct, a Qt 6 program) and XWayland ones (xterm, xlogo),
// captured and placed back, checked against what KWin itself reports. Every
// test runs on the machine's own KWin (5.27 on Debian 12) and on KWin 6 from a
// Debian 13 root (tools/make-debian13-root).
#include "access/axo.h"
#include "model/snapshot_json.h"
#include "platform/kwin/kwin_platform.h"
#include "scripting/child_process.h"
#include "session/capture.h"
#include "session/restore.h"
#include "support/kwin_session.h"
#include "support/virtual_display.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace tarnwick {
namespace {

using testing::KWinBuild;
using testing::KWinSession;
using testing::forWindow;
using testing::KWinWindow;
using testing::eventually;

// The titles the programs give their windows.
const char* const westonTitle = "Wayland Terminal";
const char* const gtkTitle = "Application Class";
const char* const geditTitle = "Untitled Document 1 - gedit";
const char* const secondGeditTitle = "Untitled Document 2 - gedit";
const char* const mousepadTitle = "Untitled 1 - Mousepad";
const char* const qtTitle = "Qt6 Configuration Tool";
const char* const xtermTitle = "xterm";
const char* const xlogoTitle = "xlogo";
const std::vector<std::string> allTitles{westonTitle,  gtkTitle, geditTitle, secondGeditTitle,
                                         mousepadTitle, qtTitle,  xtermTitle, xlogoTitle};
// gedit's two windows are one process's: seven programs, eight windows.
constexpr size_t programCount = 7;

// Terminals (xterm, weston-terminal) size themselves in whole character
// cells: a frame asked of one holds to within a cell (under 20 px with any of
// their fonts).
constexpr double terminalCell = 20;

// A frame asked of a window, and how near its size must come.
struct Wanted {
    double x, y, width, height;
    double sizeStep = 2;
};

class KWinTest : public ::testing::TestWithParam<KWinBuild> {
protected:
    void SetUp() override {
        session_ = std::make_unique<KWinSession>(GetParam());
        if (!session_->running()) GTEST_SKIP() << "no headless KWin here: " << session_->whyNot();
        // Wayland-native GTK and Qt programs, as a Plasma session starts them.
        session_->start("weston-terminal", {});
        session_->start("gtk3-demo", {}, {"GDK_BACKEND=wayland"});
        session_->start("gedit", {}, {"GDK_BACKEND=wayland"});
        session_->start("mousepad", {}, {"GDK_BACKEND=wayland"});
        session_->start("qt6ct", {}, {"QT_QPA_PLATFORM=wayland"});
        session_->start("xterm", {});
        session_->start("xlogo", {});
        ASSERT_TRUE(eventually([&] { return byTitle().count(geditTitle) == 1; }, 30.0)) << "gedit showed no window";
        // A second gedit window, asked of the running gedit as a user would:
        // the request's own process hands it over and ends.
        session_->start("gedit", {"--new-window"}, {"GDK_BACKEND=wayland"});
        std::map<std::string, KWinWindow> shown;
        ASSERT_TRUE(eventually(
            [&] {
                shown = byTitle();
                return shown.size() == allTitles.size();
            },
            30.0))
            << "the programs did not all show their windows: " << titlesOf(shown);
        for (const std::string& title : allTitles) ASSERT_EQ(shown.count(title), 1u) << titlesOf(shown);
        ASSERT_EQ(shown[geditTitle].pid, shown[secondGeditTitle].pid) << "both gedit windows in one process";
        std::string why;
        backend_ = openKWinPlatform(why);
        ASSERT_TRUE(backend_) << why;
        installPlatform(backend_.get());
    }

    void TearDown() override {
        installPlatform(nullptr);
        backend_.reset();
        session_.reset();
    }

    std::map<std::string, KWinWindow> byTitle() { return session_->windowsByTitle(); }

    static std::string titlesOf(const std::map<std::string, KWinWindow>& windows) {
        std::string text;
        for (const auto& [title, window] : windows) text += "\"" + title + "\" ";
        return text;
    }

    // Whether every window named has taken its frame.
    bool framesHeld(const std::map<std::string, Wanted>& frames) {
        auto now = byTitle();
        for (const auto& [title, f] : frames) {
            const KWinWindow& window = now[title];
            if (std::abs(window.x - f.x) > 2 || std::abs(window.y - f.y) > 2 ||
                std::abs(window.width - f.width) > f.sizeStep || std::abs(window.height - f.height) > f.sizeStep)
                return false;
        }
        return true;
    }

    // Each window's frame and states, for a failure's message.
    static std::string framesOf(const std::map<std::string, KWinWindow>& windows) {
        std::string text;
        char line[256];
        for (const auto& [title, w] : windows) {
            std::snprintf(line, sizeof line, "\n  \"%s\": %g,%g %gx%g desktop %lld%s%s%s", title.c_str(), w.x, w.y,
                          w.width, w.height, static_cast<long long>(w.desktop), w.minimized ? " minimized" : "",
                          w.maximizedHorizontally ? " wide" : "", w.maximizedVertically ? " tall" : "");
            text += line;
        }
        return text;
    }

    // The captured window of this title, with the app it belongs to.
    static const WindowState* captured(const Snapshot& snapshot, const std::string& title) {
        for (const AppState& app : snapshot.apps)
            for (const WindowState& window : app.windows)
                if (window.title == title) return &window;
        return nullptr;
    }

    std::unique_ptr<KWinSession> session_;
    std::unique_ptr<Platform> backend_;
};

std::string framesScript(const std::map<std::string, Wanted>& frames) {
    std::string script;
    for (const auto& [title, f] : frames) {
        char body[160];
        std::snprintf(body, sizeof body, "c.frameGeometry = {x: %g, y: %g, width: %g, height: %g};", f.x, f.y, f.width,
                      f.height);
        script += forWindow(title, body);
    }
    return script;
}

TEST_P(KWinTest, CaptureListsEveryWindowAsKWinReportsIt) {
    session_->script(forWindow(xtermTitle, "moveToDesktop(c, 2);") + forWindow(gtkTitle, "c.setMaximize(true, true);") +
                     forWindow(xlogoTitle, "c.minimized = true;") +
                     forWindow(secondGeditTitle, "moveToDesktop(c, 3);") +
                     forWindow(mousepadTitle, "c.minimized = true;") + forWindow(qtTitle, "moveToDesktop(c, -1);") +
                     // One axis only, so that the two cannot be read the wrong way round.
                     forWindow(westonTitle, "c.setMaximize(true, false);"));
    std::map<std::string, KWinWindow> reported;
    ASSERT_TRUE(eventually([&] {
        reported = byTitle();
        return reported[gtkTitle].maximizedHorizontally && reported[xlogoTitle].minimized &&
               reported[westonTitle].maximizedVertically && !reported[westonTitle].maximizedHorizontally &&
               reported[mousepadTitle].minimized && reported[secondGeditTitle].desktop == 3 &&
               reported[qtTitle].desktop == -1;
    }));
    auto started = std::chrono::steady_clock::now();
    Snapshot snapshot = Capture::snapshot("test");
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    EXPECT_LT(seconds, 1.0);

    ASSERT_EQ(reported.size(), allTitles.size());
    for (const auto& [title, window] : reported) {
        const WindowState* saved = captured(snapshot, title);
        ASSERT_NE(saved, nullptr) << title << " was not captured";
        ASSERT_TRUE(saved->frame) << title;
        EXPECT_EQ(saved->frame->x, window.x) << title;
        EXPECT_EQ(saved->frame->y, window.y) << title;
        EXPECT_EQ(saved->frame->w, window.width) << title;
        EXPECT_EQ(saved->frame->h, window.height) << title;
        EXPECT_EQ(saved->minimized, window.minimized) << title;
        EXPECT_EQ(saved->fullScreen, window.fullScreen) << title;
        EXPECT_EQ(saved->maximizedHorizontally, window.maximizedHorizontally) << title;
        EXPECT_EQ(saved->maximizedVertically, window.maximizedVertically) << title;
        // Workspaces count from 0, KWin's desktops from 1; both say -1 for all.
        EXPECT_EQ(saved->workspace, window.desktop < 0 ? -1 : window.desktop - 1) << title;
    }
    EXPECT_EQ(captured(snapshot, xtermTitle)->workspace, 1);
    EXPECT_EQ(captured(snapshot, gtkTitle)->maximizedVertically, true);
    EXPECT_EQ(captured(snapshot, xlogoTitle)->minimized, true);
    EXPECT_EQ(captured(snapshot, secondGeditTitle)->workspace, 2);
    EXPECT_EQ(captured(snapshot, qtTitle)->workspace, -1) << "on all desktops";
    EXPECT_EQ(captured(snapshot, mousepadTitle)->minimized, true);
    // Wayland-native windows are named by their app id's desktop entry, and
    // gedit's two windows are one app's.
    std::map<std::string, size_t> windowsByEntry;
    for (const AppState& app : snapshot.apps)
        if (app.bundleID) windowsByEntry[*app.bundleID] += app.windows.size();
    EXPECT_EQ(windowsByEntry["gtk3-demo.desktop"], 1u);
    EXPECT_EQ(windowsByEntry["org.gnome.gedit.desktop"], 2u);
    EXPECT_EQ(windowsByEntry["org.xfce.mousepad.desktop"], 1u);
    EXPECT_EQ(windowsByEntry["qt6ct.desktop"], 1u);
    EXPECT_EQ(snapshot.apps.size(), programCount);
}

TEST_P(KWinTest, RestorePutsEveryWindowBackWithItsStates) {
    // The session to keep, arranged as a user would: frames of their own
    // first, then windows sent to desktops 2 and 3 and one to all, one
    // maximized, two minimized.
    const std::map<std::string, Wanted> keptFrames{
        {westonTitle, {40, 30, 600, 400, terminalCell}},
        {xtermTitle, {700, 300, 500, 350, terminalCell}},
        {xlogoTitle, {900, 50, 200, 150}},
        {geditTitle, {60, 80, 700, 500}},
        {secondGeditTitle, {520, 260, 640, 480}},
        {mousepadTitle, {150, 200, 600, 400}},
        {qtTitle, {640, 40, 560, 600}}};
    session_->script(framesScript(keptFrames));
    ASSERT_TRUE(eventually([&] { return framesHeld(keptFrames); })) << framesOf(byTitle());
    session_->script(forWindow(xtermTitle, "moveToDesktop(c, 2);") + forWindow(gtkTitle, "c.setMaximize(true, true);") +
                     forWindow(xlogoTitle, "c.minimized = true;") +
                     forWindow(secondGeditTitle, "moveToDesktop(c, 3);") +
                     forWindow(mousepadTitle, "c.minimized = true;") + forWindow(qtTitle, "moveToDesktop(c, -1);"));
    ASSERT_TRUE(eventually([&] {
        auto now = byTitle();
        return now[gtkTitle].maximizedVertically && now[xlogoTitle].minimized && now[mousepadTitle].minimized &&
               now[xtermTitle].desktop == 2 && now[secondGeditTitle].desktop == 3 && now[qtTitle].desktop == -1;
    })) << framesOf(byTitle());
    std::map<std::string, KWinWindow> kept = byTitle();
    Snapshot snapshot = Capture::snapshot("test");
    for (const auto& [title, window] : kept) ASSERT_NE(captured(snapshot, title), nullptr) << title;

    // A user moves everything around: brings the windows here, gives them
    // frames, and sends some elsewhere.
    session_->script(forWindow(gtkTitle, "c.setMaximize(false, false);") +
                     forWindow(xlogoTitle, "c.minimized = false;") + forWindow(mousepadTitle, "c.minimized = false;") +
                     forWindow(secondGeditTitle, "moveToDesktop(c, 1);") +
                     forWindow(xtermTitle, "moveToDesktop(c, 1);") +
                     forWindow(qtTitle, "moveToDesktop(c, 1);"));
    ASSERT_TRUE(eventually([&] {
        auto now = byTitle();
        return !now[gtkTitle].maximizedVertically && !now[xlogoTitle].minimized && !now[mousepadTitle].minimized &&
               now[secondGeditTitle].desktop == 1 && now[xtermTitle].desktop == 1 && now[qtTitle].desktop == 1;
    })) << framesOf(byTitle());
    const std::map<std::string, Wanted> movedFrames{
        {xtermTitle, {10, 10, 300, 200, terminalCell}},
        {gtkTitle, {300, 200, 500, 400}},
        {xlogoTitle, {0, 0, 120, 120}},
        {secondGeditTitle, {200, 100, 500, 400}},
        {mousepadTitle, {0, 0, 560, 300}},
        {qtTitle, {100, 100, 500, 600}}};
    session_->script(framesScript(movedFrames));
    ASSERT_TRUE(eventually([&] { return framesHeld(movedFrames); })) << framesOf(byTitle());
    session_->script(forWindow(westonTitle, "c.setMaximize(true, true);") +
                     forWindow(xtermTitle, "moveToDesktop(c, 3);") +
                     forWindow(gtkTitle, "moveToDesktop(c, 4);") + forWindow(geditTitle, "c.setMaximize(true, true);"));
    ASSERT_TRUE(eventually([&] {
        auto now = byTitle();
        return now[westonTitle].maximizedHorizontally && now[geditTitle].maximizedVertically &&
               now[xtermTitle].desktop == 3 && now[gtkTitle].desktop == 4;
    })) << framesOf(byTitle());

    auto started = std::chrono::steady_clock::now();
    Restore::Result result = Restore::run(snapshot, nullptr);
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    EXPECT_LT(seconds, 5.0);
    EXPECT_EQ(result.windows, static_cast<int>(allTitles.size()));
    EXPECT_TRUE(result.problems.empty()) << result.problems.front();

    // What a user sees on each desktop in turn: a Wayland program takes a
    // new frame only once it draws at that size, and one still waiting for
    // KWin's go-ahead to draw (a frame callback) gets none while its desktop
    // is not shown.
    auto same = [](const KWinWindow& after, const KWinWindow& before) {
        return std::abs(after.x - before.x) <= 2 && std::abs(after.y - before.y) <= 2 &&
               std::abs(after.width - before.width) <= 2 && std::abs(after.height - before.height) <= 2 &&
               after.minimized == before.minimized && after.desktop == before.desktop &&
               after.maximizedHorizontally == before.maximizedHorizontally &&
               after.maximizedVertically == before.maximizedVertically && after.fullScreen == before.fullScreen;
    };
    std::map<std::string, KWinWindow> now, seen;
    bool back = true;
    for (int desktop = 1; desktop <= 4; ++desktop) {
        auto there = [&](const KWinWindow& window) { return window.desktop == desktop || window.desktop == -1; };
        session_->script("showDesktop(" + std::to_string(desktop) + ");");
        back = eventually(
                   [&] {
                       now = byTitle();
                       for (const auto& [title, before] : kept)
                           if (there(before) && !same(now[title], before)) return false;
                       return true;
                   },
                   3.0) &&
               back;
        for (const auto& [title, before] : kept)
            if (there(before)) seen[title] = now[title];
    }
    EXPECT_EQ(now.size(), kept.size()) << "no second copies: " << titlesOf(now);
    EXPECT_EQ(now[geditTitle].pid, now[secondGeditTitle].pid) << "gedit's windows are still one process's";
    for (const auto& [title, before] : kept) {
        const KWinWindow& after = seen[title];
        EXPECT_NEAR(after.x, before.x, 2) << title;
        EXPECT_NEAR(after.y, before.y, 2) << title;
        EXPECT_NEAR(after.width, before.width, 2) << title;
        EXPECT_NEAR(after.height, before.height, 2) << title;
        EXPECT_EQ(after.minimized, before.minimized) << title;
        EXPECT_EQ(after.desktop, before.desktop) << title;
        EXPECT_EQ(after.maximizedHorizontally, before.maximizedHorizontally) << title;
        EXPECT_EQ(after.maximizedVertically, before.maximizedVertically) << title;
    }
    EXPECT_TRUE(back);
}

// The product, as a Plasma user runs it: a capture to a file, every program
// quit, and a restore that starts them again (through their desktop entries,
// or by the command line a signed capture recorded) and puts their windows
// back where they were.
TEST_P(KWinTest, QuitProgramsComeBackThroughTheProgramWhereTheyWere) {
    session_->script(forWindow(westonTitle, "c.frameGeometry = {x: 40, y: 30, width: 600, height: 400};") +
                     forWindow(xtermTitle, "c.frameGeometry = {x: 700, y: 300, width: 500, height: 350};") +
                     forWindow(gtkTitle, "c.frameGeometry = {x: 300, y: 420, width: 640, height: 360};") +
                     forWindow(xlogoTitle, "c.frameGeometry = {x: 900, y: 50, width: 200, height: 150};") +
                     forWindow(geditTitle, "c.frameGeometry = {x: 60, y: 80, width: 700, height: 500};") +
                     forWindow(secondGeditTitle, "c.frameGeometry = {x: 520, y: 260, width: 640, height: 480};") +
                     forWindow(mousepadTitle, "c.frameGeometry = {x: 150, y: 200, width: 600, height: 400};") +
                     forWindow(qtTitle, "c.frameGeometry = {x: 640, y: 40, width: 560, height: 600};"));
    ASSERT_TRUE(eventually([&] {
        auto now = byTitle();
        return now[westonTitle].x == 40 && now[xlogoTitle].x == 900 && now[secondGeditTitle].x == 520 &&
               now[qtTitle].x == 640;
    }));
    // Let the programs finish whatever they do after a resize.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    std::map<std::string, KWinWindow> kept = byTitle();
    auto run = [](const std::vector<std::string>& arguments, std::string& out) {
        int error = 0;
        auto child = ChildProcess::start(TARNWICK_PATH, arguments, ChildProcess::Input::inherit,
                                         ChildProcess::ErrorOutput::discard, error);
        if (!child) return -1;
        char buffer[65536];
        for (ssize_t n; (n = ::read(child->output().get(), buffer, sizeof buffer)) > 0;)
            out.append(buffer, static_cast<size_t>(n));
        return child->wait();
    };
    std::string json;
    ASSERT_EQ(run({"--capture"}, json), 0);
    auto file = std::filesystem::temp_directory_path() / ("tarnwick-kwin-" + std::to_string(::getpid()) + ".json");
    {
        std::ofstream(file) << json;
    }
    for (pid_t pid : session_->programs()) session_->quit(pid);
    ASSERT_TRUE(eventually([&] { return session_->windows().empty(); }, 10.0)) << "the programs did not quit";

    std::string said;
    auto started = std::chrono::steady_clock::now();
    int status = run({"--restore", file.string()}, said);
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    std::filesystem::remove(file);
    EXPECT_EQ(status, 0) << said;
    // gedit comes back through its entry, and its second window through the
    // entry's new-window action.
    EXPECT_NE(said.find("launched 7, windows 8, tabs 0\n"), std::string::npos) << said;
    EXPECT_EQ(said.find("problem:"), std::string::npos) << said;
    EXPECT_LT(seconds, 15.0) << "seven programs started and placed";

    std::map<std::string, KWinWindow> now;
    bool back = eventually(
        [&] {
            now = byTitle();
            if (now.size() != kept.size()) return false;
            for (const auto& [title, before] : kept) {
                const KWinWindow& after = now[title];
                if (std::abs(after.x - before.x) > 2 || std::abs(after.y - before.y) > 2 ||
                    std::abs(after.width - before.width) > 2 || std::abs(after.height - before.height) > 2)
                    return false;
            }
            return true;
        },
        10.0);
    for (const auto& [title, before] : kept) {
        EXPECT_NEAR(now[title].x, before.x, 2) << title;
        EXPECT_NEAR(now[title].y, before.y, 2) << title;
        EXPECT_NEAR(now[title].width, before.width, 2) << title;
        EXPECT_NEAR(now[title].height, before.height, 2) << title;
    }
    EXPECT_TRUE(back);
    EXPECT_EQ(session_->windows().size(), allTitles.size()) << "no second copies";
    EXPECT_EQ(now[geditTitle].pid, now[secondGeditTitle].pid) << "both gedit windows in one process";
}

// The attribute names the backend answers are the ones the window logic asks.
// The program itself, as a Plasma user runs it: it finds KWin on its own and
// sees the Wayland windows as well as the XWayland ones.
TEST_P(KWinTest, TheProgramChoosesKWinAndCapturesEveryWindow) {
    int error = 0;
    auto child = ChildProcess::start(TARNWICK_PATH, {"--capture"}, ChildProcess::Input::inherit,
                                     ChildProcess::ErrorOutput::pipe, error);
    ASSERT_TRUE(child) << std::strerror(error);
    std::string out, err;
    char buffer[65536];
    for (ssize_t n; (n = ::read(child->output().get(), buffer, sizeof buffer)) > 0;) out.append(buffer, size_t(n));
    for (ssize_t n; (n = ::read(child->errorOutput().get(), buffer, sizeof buffer)) > 0;) err.append(buffer, size_t(n));
    int status = child->wait();
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << err;
    EXPECT_EQ(err, "7 apps \u00B7 8 windows; window manager: KWin (Wayland)\n");
    auto snapshot = decodeSnapshot(out);
    ASSERT_TRUE(snapshot);
    for (const std::string& title : allTitles) EXPECT_NE(captured(*snapshot, title), nullptr) << title;
}

// Test names carry the build: kwin/KWinTest.Name/installed, .../debian13.
INSTANTIATE_TEST_SUITE_P(kwin, KWinTest, ::testing::Values(KWinBuild::installed, KWinBuild::debian13),
                         [](const ::testing::TestParamInfo<KWinBuild>& build) { return testing::nameOf(build.param); });

TEST(KWinNamesTest, WindowManagerAttributesAreTheSeamsNames) {
    EXPECT_STREQ(AXO::workspaceAttribute, "TWWorkspace");
    EXPECT_STREQ(AXO::maximizedHorizontallyAttribute, "TWMaximizedHorizontally");
    EXPECT_STREQ(AXO::maximizedVerticallyAttribute, "TWMaximizedVertically");
    EXPECT_STREQ(AXO::maximizedAttribute, "TWMaximized");
}

}  // namespace
}  // namespace tarnwick
