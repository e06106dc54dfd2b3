// The tray application on Wayland, with Qt's Wayland platform, as a KDE Plasma
// user runs it: the program itself as a process on a real headless KWin with
// XWayland, its icon going through a real StatusNotifierItem watcher and tray,
// and its menu read and used over D-Bus as Plasma's panel does; what it saves
// and puts back is checked against what KWin itself reports. And on a headless
// weston, a Wayland compositor Tarnwick does not serve: the tray still starts,
// and its menu says why nothing is saved.
#include "model/snapshot_json.h"
#include "store/store.h"
#include "support/kwin_session.h"
#include "support/process_group.h"
#include "support/scoped_variable.h"
#include "support/temp_dir.h"
#include "support/virtual_display.h"
#include "tray/tray_support.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QImage>
#include <QVariantMap>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace tarnwick::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;

// The title weston-terminal gives its window.
const char* const terminalTitle = "Wayland Terminal";

// The tray of a panel, as a Wayland program of its own.
std::vector<std::string> waylandTray() {
    return {programPath("env"), "GDK_BACKEND=wayland", programPath("gtk-sni-tray-standalone"), "--no-strut"};
}

// Whether the process drew with Qt's Wayland platform: its client library is loaded.
bool usesQtWayland(pid_t pid) {
    for (const std::string& line : fileLines("/proc/" + std::to_string(pid) + "/maps"))
        if (line.find("libQt6WaylandClient") != std::string::npos) return true;
    return false;
}

// The environment a Wayland session gives the programs in it, whatever the
// test process itself was started with.
struct WaylandSessionVariables {
    explicit WaylandSessionVariables(const std::string& desktop) : currentDesktop("XDG_CURRENT_DESKTOP", desktop) {}
    ScopedVariable sessionType{"XDG_SESSION_TYPE", "wayland"};
    ScopedVariable qtPlatform{"QT_QPA_PLATFORM", "wayland"};
    ScopedVariable currentDesktop;
    // The program chooses its backend itself.
    ScopedVariable backend{"TARNWICK_BACKEND", ""};
};

// What the tests on either compositor share: the tray's user, a stand-in
// system bus, the panel's tray and the application.
class WaylandTrayTest : public ::testing::Test {
protected:
    // The panel's tray, once the compositor runs.
    void startPanel() {
        panel.emplace(waylandTray());
        ASSERT_NO_FATAL_FAILURE(panel->start());
    }

    // The application started as a user starts it, until its launch is logged.
    void startApp() {
        app.emplace(TARNWICK_PATH, std::vector<std::string>{});
        ASSERT_TRUE(eventually([&] { return user.logHas("launched; boot time "); }, 20.0))
            << "the application did not start: " << readText(user.logFile());
    }

    // The application and the panel end before the compositor they run on.
    void endTray() {
        app.reset();
        panel.reset();
    }

    TrayUser user;
    SessionBus system{"DBUS_SYSTEM_BUS_ADDRESS"};
    std::optional<TrayPanel> panel;
    std::optional<Program> app;
};

// ---------------------------------------------------------------------------
// KDE Plasma: a real headless KWin.

class KWinTrayTest : public WaylandTrayTest {
protected:
    void SetUp() override {
        kwin = std::make_unique<KWinSession>();
        ASSERT_TRUE(kwin->running()) << "no headless KWin: " << kwin->whyNot();
        // KWin's session named a settings folder of its own: the user's is ours.
        ownConfig.emplace("XDG_CONFIG_HOME", user.config().string());
        terminal = kwin->start("weston-terminal", {});
        ASSERT_TRUE(eventually([&] { return window(terminalTitle).has_value(); }, 20.0)) << "no terminal window";
    }

    void TearDown() override {
        endTray();
        // Also whatever a restore started on the desktop.
        kwin.reset();
        ownConfig.reset();
    }

    std::optional<KWinWindow> window(const std::string& caption) {
        for (KWinWindow& shown : kwin->windows())
            if (shown.caption == caption) return shown;
        return std::nullopt;
    }

    // The windows KWin shows for the application: its menu, its alerts.
    std::vector<KWinWindow> appWindows() {
        std::vector<KWinWindow> found;
        for (KWinWindow& shown : kwin->windows())
            if (app && shown.pid == app->pid()) found.push_back(shown);
        return found;
    }

    // Closes the application's windows as their title bar's button does.
    void closeAppWindows() {
        kwin->script("var l = workspace.clientList();\nfor (var i = 0; i < l.length; ++i) if (l[i].pid == " +
                     std::to_string(app->pid()) + ") l[i].closeWindow();\n");
    }

    // The screen as KWin composes it, into the screenshot folder when the run names one.
    void screenshot(const std::string& name) {
        const char* folder = std::getenv("TARNWICK_SCREENSHOT_DIR");
        if (!folder) return;
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        UniqueFd readEnd(ends[0]);
        QDBusMessage reply;
        {
            // The message's copy of the write end must be gone before the
            // reading, or the pipe never ends.
            QDBusMessage call = QDBusMessage::createMethodCall("org.kde.KWin", "/org/kde/KWin/ScreenShot2",
                                                               "org.kde.KWin.ScreenShot2", "CaptureActiveScreen");
            call << QVariantMap{{"native-resolution", true}}
                 << QVariant::fromValue(QDBusUnixFileDescriptor(ends[1]));
            ::close(ends[1]);
            reply = panel->bus().call(call);
        }
        std::string pixels;
        char chunk[65536];
        for (ssize_t n; (n = ::read(readEnd.get(), chunk, sizeof chunk)) > 0;) pixels.append(chunk, size_t(n));
        ASSERT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
        QVariantMap result = qdbus_cast<QVariantMap>(reply.arguments().at(0));
        QImage image(reinterpret_cast<const uchar*>(pixels.data()), result["width"].toInt(), result["height"].toInt(),
                     result["stride"].toInt(), QImage::Format(result["format"].toInt()));
        ASSERT_GE(pixels.size(), size_t(image.sizeInBytes())) << "a short screenshot";
        EXPECT_TRUE(image.save(QString::fromStdString(std::string(folder) + "/" + name)));
    }

    WaylandSessionVariables variables{"KDE"};
    std::unique_ptr<KWinSession> kwin;
    std::optional<ScopedVariable> ownConfig;
    pid_t terminal = 0;
};

TEST_F(KWinTrayTest, TheMenuOpensWithItsItemsInOrderAndAClickOnTheIconShowsIt) {
    ASSERT_NO_FATAL_FAILURE(startPanel());
    ASSERT_NO_FATAL_FAILURE(startApp());
    ASSERT_NO_FATAL_FAILURE(panel->findItem());
    EXPECT_TRUE(usesQtWayland(app->pid())) << "not drawn through Qt's Wayland platform";
    // KWin lists and places every window: nothing to say about access.
    EXPECT_THAT(rows(panel->openMenu()),
                ElementsAre("No snapshots yet (disabled)", "---", "Save snapshot now",
                            "Not saved yet \u00B7 saves at restart (disabled)", "Timed snapshots >5", "---",
                            "Open at login (on)", "Show snapshots in the file manager", "Quit Tarnwick"));

    // A click on the icon, where Plasma's panel would have it.
    ASSERT_NO_FATAL_FAILURE(panel->activate(1200, 780));
    std::vector<KWinWindow> shown;
    ASSERT_TRUE(eventually([&] {
        shown = appWindows();
        return shown.size() == 1 && shown.front().height > 150;
    })) << "the click opened no menu";
    ASSERT_NO_FATAL_FAILURE(screenshot("tray-menu-kwin.png"));
    closeAppWindows();
    EXPECT_TRUE(eventually([&] { return appWindows().empty(); })) << "the menu did not close";
    EXPECT_FALSE(app->exited(0.2)) << "the tray keeps running";
}

TEST_F(KWinTrayTest, SaveNowWritesTheSessionsWindowsThroughKWin) {
    kwin->script("var l = workspace.clientList();\nfor (var i = 0; i < l.length; ++i) if (l[i].caption == \"" +
                 std::string(terminalTitle) + "\") l[i].frameGeometry = {x: 60, y: 40, width: 640, height: 420};\n");
    ASSERT_TRUE(eventually([&] { return window(terminalTitle)->x == 60; }));
    ASSERT_NO_FATAL_FAILURE(startPanel());
    ASSERT_NO_FATAL_FAILURE(startApp());
    ASSERT_NO_FATAL_FAILURE(panel->findItem());
    const std::vector<KWinWindow> reported = kwin->windows();

    panel->choose("Save snapshot now");
    ASSERT_TRUE(eventually([&] { return user.logHas("save (manual)"); }, 20.0)) << readText(user.logFile());
    auto files = user.snapshotFiles();
    ASSERT_EQ(files.size(), 1u);
    auto snapshot = decodeSnapshot(readText(files.front()));
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(snapshot->reason, "manual");
    EXPECT_THAT(user.logLinesWith("save (manual)"), ElementsAre("save (manual): " + snapshot->summary()));
    // Every window KWin shows, the terminal where it stands, and none of the application's own.
    size_t windows = 0;
    const WindowState* saved = nullptr;
    for (const AppState& recorded : snapshot->apps) {
        EXPECT_NE(recorded.bundleID, "com.tarnwick.Tarnwick.desktop") << "the application itself is never saved";
        for (const WindowState& each : recorded.windows) {
            windows += 1;
            if (each.title == terminalTitle) saved = &each;
        }
    }
    EXPECT_EQ(windows, reported.size());
    ASSERT_TRUE(saved) << "the terminal was not saved";
    ASSERT_TRUE(saved->frame);
    const KWinWindow shown = *window(terminalTitle);
    EXPECT_EQ(saved->frame->x, shown.x);
    EXPECT_EQ(saved->frame->y, shown.y);
    EXPECT_EQ(saved->frame->w, shown.width);
    EXPECT_EQ(saved->frame->h, shown.height);
    EXPECT_TRUE(eventually([&] {
        for (const std::string& row : rows(panel->openMenu()))
            if (row.rfind("Last saved ", 0) == 0) return true;
        return false;
    })) << "the status line names the save";
}

TEST_F(KWinTrayTest, RestoreFromTheMenuStartsTheQuitTerminalWhereItWasAndReports) {
    kwin->script("var l = workspace.clientList();\nfor (var i = 0; i < l.length; ++i) if (l[i].caption == \"" +
                 std::string(terminalTitle) + "\") l[i].frameGeometry = {x: 300, y: 200, width: 560, height: 360};\n");
    ASSERT_TRUE(eventually([&] { return window(terminalTitle)->x == 300; }));
    const KWinWindow kept = *window(terminalTitle);
    ASSERT_NO_FATAL_FAILURE(startPanel());
    ASSERT_NO_FATAL_FAILURE(startApp());
    ASSERT_NO_FATAL_FAILURE(panel->findItem());
    panel->choose("Save snapshot now");
    ASSERT_TRUE(eventually([&] { return user.snapshotFiles().size() == 1; }, 20.0)) << readText(user.logFile());
    auto snapshot = decodeSnapshot(readText(user.snapshotFiles().front()));
    ASSERT_TRUE(snapshot);
    kwin->quit(terminal);
    ASSERT_TRUE(eventually([&] { return !window(terminalTitle); })) << "the terminal did not quit";

    panel->choose("Restore latest snapshot");
    ASSERT_TRUE(eventually([&] { return user.logHas("restore:"); }, 30.0)) << readText(user.logFile());
    size_t windows = 0;
    for (const AppState& recorded : snapshot->apps) windows += recorded.windows.size();
    EXPECT_THAT(user.logLinesWith("restore:"),
                ElementsAre("restore: launched 1, windows " + std::to_string(windows) + ", tabs 0, problems []"));
    std::optional<KWinWindow> back;
    EXPECT_TRUE(eventually([&] {
        back = window(terminalTitle);
        return back && std::abs(back->x - kept.x) <= 2 && std::abs(back->y - kept.y) <= 2 &&
               std::abs(back->width - kept.width) <= 2 && std::abs(back->height - kept.height) <= 2;
    })) << "the terminal is not back where it was";

    // The report: a window of the application's own, closed as a user closes it.
    std::vector<KWinWindow> shown;
    ASSERT_TRUE(eventually([&] {
        shown = appWindows();
        return shown.size() == 1;
    })) << "no report";
    EXPECT_EQ(shown.front().caption, "Tarnwick");
    ASSERT_NO_FATAL_FAILURE(screenshot("restore-report-kwin.png"));
    closeAppWindows();
    EXPECT_TRUE(eventually([&] { return appWindows().empty(); })) << "the report did not close";
    EXPECT_FALSE(app->exited(0.5)) << "closing the report does not end the tray";
}

// Started at login, the application may be up before the panel's tray is: its
// icon shows once the tray registers.
TEST_F(KWinTrayTest, TheIconShowsWhenThePanelsTrayStartsAfterTheApplication) {
    ASSERT_NO_FATAL_FAILURE(startApp());
    EXPECT_TRUE(eventually([&] {
        return user.logHas("tray: no system tray on this desktop yet; the icon appears when one starts");
    })) << readText(user.logFile());
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    ASSERT_NO_FATAL_FAILURE(startPanel());
    ASSERT_NO_FATAL_FAILURE(panel->findItem());
    EXPECT_THAT(rows(panel->openMenu()), ::testing::Contains("Save snapshot now"));
}

// ---------------------------------------------------------------------------
// A compositor Tarnwick does not serve: a headless weston.

class WestonTrayTest : public WaylandTrayTest {
protected:
    void SetUp() override {
        std::string why;
        auto started = startGroup({programPath("weston"), "--backend=headless-backend.so", "--socket=" + socket,
                                   "--idle-time=0"},
                                  why);
        ASSERT_TRUE(started) << why;
        weston.emplace(std::move(*started));
        ASSERT_TRUE(eventually([&] { return std::filesystem::exists(user.runtime() / socket); }, 20.0))
            << "weston did not start";
        display.emplace("WAYLAND_DISPLAY", socket);
        ASSERT_NO_FATAL_FAILURE(startPanel());
    }

    void TearDown() override {
        endTray();
        display.reset();
        if (weston) stopGroup(*weston);
        weston.reset();
    }

    // A snapshot file of one program, as an earlier session on a desktop
    // Tarnwick serves left it. Seconds old only: one from before the machine
    // started is offered as the session from before the restart, under
    // another title, and a test machine may have started a minute ago.
    void place(std::chrono::seconds ago) {
        Snapshot snapshot;
        snapshot.date = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()) - ago;
        snapshot.reason = "manual";
        snapshot.apps.push_back(AppState{"Terminal", "org.freedesktop.weston.wayland-terminal.desktop", "",
                                         AppKind::generic, false,
                                         {WindowState{terminalTitle, std::nullopt, Frame{40, 30, 600, 400}, false,
                                                      false}},
                                         {}});
        std::filesystem::create_directories(user.snapshots());
        writeText(user.snapshots() / Store::fileName(snapshot.date), *encodeSnapshot(snapshot));
    }

    // One line of the command-line mode and its exit status.
    std::pair<std::string, int> runMode(const std::string& option) {
        int error = 0;
        auto child = ChildProcess::start(TARNWICK_PATH, {option}, ChildProcess::Input::inherit,
                                         ChildProcess::ErrorOutput::pipe, error);
        if (!child) return {std::strerror(error), -1};
        std::string said;
        char chunk[4096];
        for (ssize_t n; (n = ::read(child->errorOutput().get(), chunk, sizeof chunk)) > 0;)
            said.append(chunk, size_t(n));
        return {said, child->wait()};
    }

    const std::string socket = "tarnwick-weston-" + std::to_string(::getpid());
    SessionBus session;
    // Weston starts no X server: nothing of the test's own display reaches it.
    ScopedVariable noX11{"DISPLAY", ""};
    WaylandSessionVariables variables{""};
    std::optional<ChildProcess> weston;
    std::optional<ScopedVariable> display;
};

const char* const westonReason =
    "a Wayland session, whose compositor Tarnwick cannot list or place windows in yet (it serves X11 window "
    "managers and KDE Plasma's KWin; KWin does not answer on the D-Bus session bus (no org.kde.KWin))";

TEST_F(WestonTrayTest, TheTrayStartsAndItsMenuSaysWhyNothingIsSaved) {
    ASSERT_NO_FATAL_FAILURE(startApp());
    ASSERT_NO_FATAL_FAILURE(panel->findItem());
    EXPECT_TRUE(usesQtWayland(app->pid()));
    EXPECT_THAT(user.logLinesWith("desktop:"),
                ElementsAre("desktop: " + std::string(westonReason) + "; nothing is saved or restored"));
    EXPECT_THAT(rows(panel->openMenu()),
                ElementsAre("Tarnwick cannot list or place windows in a Wayland session yet (disabled)", "---",
                            "No snapshots yet (disabled)", "---", "Save snapshot now (disabled)",
                            "Not saved yet \u00B7 no saves on this desktop (disabled)", "Timed snapshots >5", "---",
                            "Open at login (on)", "Show snapshots in the file manager", "Quit Tarnwick"));

    // Chosen all the same, as a tray that ignores the disabling would: nothing is written.
    panel->choose("Save snapshot now");
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_TRUE(user.snapshotFiles().empty());
    EXPECT_TRUE(user.logLinesWith("save (").empty()) << readText(user.logFile());
    EXPECT_FALSE(app->exited(0.1)) << "the tray keeps running";

    // What does not need the desktop still works.
    panel->choose("Quit Tarnwick");
    EXPECT_EQ(app->exited(10.0), 0);
}

TEST_F(WestonTrayTest, StoredSnapshotsAreListedButCannotBeRestoredHere) {
    place(std::chrono::seconds(5));
    place(std::chrono::seconds(2));
    ASSERT_NO_FATAL_FAILURE(startApp());
    ASSERT_NO_FATAL_FAILURE(panel->findItem());
    const std::vector<Item> menu = panel->openMenu();
    std::vector<std::string> shown = rows(menu);
    ASSERT_EQ(shown.size(), 13u) << ::testing::PrintToString(shown);
    EXPECT_EQ(shown[0], "Tarnwick cannot list or place windows in a Wayland session yet (disabled)");
    EXPECT_EQ(shown[2], "Restore latest snapshot (disabled)");
    EXPECT_THAT(shown[3], EndsWith(" \u2014 1 apps \u00B7 1 windows (disabled)"));
    EXPECT_EQ(shown[4], "Restore other snapshot (disabled) >2");
    EXPECT_EQ(shown[6], "Save snapshot now (disabled)");
    EXPECT_THAT(shown[7], EndsWith(" \u00B7 no saves on this desktop (disabled)"));
    const Item* other = find(menu, "Restore other snapshot");
    ASSERT_TRUE(other);
    for (const Item& each : other->children) EXPECT_FALSE(each.enabled) << each.label;

    panel->choose("Restore latest snapshot");
    panel->choose("Restore other snapshot", 1);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_TRUE(user.logLinesWith("restore:").empty()) << readText(user.logFile());
    EXPECT_FALSE(app->exited(0.1)) << "the tray keeps running";
}

TEST_F(WestonTrayTest, TheCommandLineModesStillSayWhyInOneLineAndStop) {
    for (const std::string option : {"--capture", "--save"}) {
        auto [said, status] = runMode(option);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2) << option << ": " << status;
        EXPECT_EQ(said, "tarnwick: " + std::string(westonReason) +
                            "; capture and restore need an X11 desktop or KDE Plasma on Wayland\n")
            << option;
    }
    EXPECT_TRUE(user.snapshotFiles().empty());
}

}  // namespace
}  // namespace tarnwick::testing
