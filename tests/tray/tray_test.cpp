// The tray application on a real Linux desktop: the program itself as a
// process, on Xvfb with openbox, a private D-Bus session bus, a stand-in
// system bus with a stand-in logind, and a real tray: tint2's XEmbed tray, or
// a StatusNotifierItem watcher through which its menu is read and used over
// D-Bus, as a desktop panel does.
#include "model/snapshot_json.h"
#include "support/scoped_variable.h"
#include "support/temp_dir.h"
#include "support/virtual_display.h"
#include "tray/tray_support.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <thread>

namespace tarnwick::testing {
namespace {

using ::testing::ElementsAre;

class TrayTest : public ::testing::Test {
protected:
    void SetUp() override {
        session.emplace();
        system.emplace("DBUS_SYSTEM_BUS_ADDRESS");
        display = std::make_unique<VirtualDisplay>();
        probe = std::make_unique<DisplayProbe>();
        // The desktop entries are ours alone, as in the other desktop tests; set
        // after openbox started, since it finds its theme through the same folders.
        dataDirs.emplace("XDG_DATA_DIRS", (dir().path() / "none").string());
        auto entry = dir().path() / "share" / "applications" / "xlogo.desktop";
        std::filesystem::create_directories(entry.parent_path());
        writeText(entry, "[Desktop Entry]\nType=Application\nName=Logo\nExec=xlogo\n");
    }

    void TearDown() override {
        app.reset();
        panel.reset();
        services.reset();
        probe.reset();
        display.reset();
        dataDirs.reset();
        system.reset();
        session.reset();
    }

    const TempDir& dir() const { return user.dir(); }
    std::filesystem::path home() const { return user.home(); }
    std::filesystem::path config() const { return user.config(); }
    std::filesystem::path snapshots() const { return user.snapshots(); }
    std::filesystem::path logFile() const { return user.logFile(); }
    std::filesystem::path autostart() const { return user.autostart(); }
    bool logHas(const std::string& text) const { return user.logHas(text); }
    std::vector<std::string> logLinesWith(const std::string& text) const { return user.logLinesWith(text); }
    std::vector<std::filesystem::path> snapshotFiles() const { return user.snapshotFiles(); }

    // logind on the stand-in system bus and, when asked, a file manager; with
    // a tray, a real StatusNotifierItem watcher and a real tray showing its items.
    void startServices(bool tray, bool fileManager = false) {
        std::vector<std::string> arguments{"--logind"};
        if (fileManager) arguments.push_back("--file-manager");
        services.emplace(TARNWICK_FAKE_SERVICES, arguments);
        ASSERT_TRUE(services->lineStartingWith("ready")) << "the stand-in services did not start";
        if (!tray) return;
        panel.emplace(std::vector<std::string>{programPath("gtk-sni-tray-standalone")});
        ASSERT_NO_FATAL_FAILURE(panel->start());
    }

    void startApp() {
        app.emplace(TARNWICK_PATH, std::vector<std::string>{});
        ASSERT_TRUE(eventually([&] { return logHas("launched; boot time "); }, 20.0)) << "the application did not start";
    }

    void findItem() { panel->findItem(); }
    std::vector<Item> openMenu() { return panel->openMenu(); }
    void choose(const std::string& label, std::optional<size_t> position = std::nullopt) {
        panel->choose(label, position);
    }

    // A window of the application that the window manager manages: an alert.
    std::vector<std::uint32_t> alerts() {
        std::vector<std::uint32_t> found;
        for (std::uint32_t window : probe->clientsOfClass("Tarnwick")) found.push_back(window);
        return found;
    }

    void press(const std::string& key) {
        Program xdotool(programPath("xdotool"), {"key", key});
        EXPECT_TRUE(xdotool.exited(10.0));
    }

    TrayUser user;
    // An X11 session, whatever the test process itself was started in.
    ScopedVariable sessionType{"XDG_SESSION_TYPE", "x11"};
    ScopedVariable noWayland{"WAYLAND_DISPLAY", ""};
    ScopedVariable qtPlatform{"QT_QPA_PLATFORM", "xcb"};
    ScopedVariable backend{"TARNWICK_BACKEND", ""};
    std::optional<ScopedVariable> dataDirs;
    std::optional<SessionBus> session, system;
    std::unique_ptr<VirtualDisplay> display;
    std::unique_ptr<DisplayProbe> probe;
    std::optional<Program> services;
    std::optional<TrayPanel> panel;
    std::optional<Program> app;
};

TEST_F(TrayTest, TheMenuOpensWithItsItemsInOrder) {
    ASSERT_NO_FATAL_FAILURE(startServices(true));
    ASSERT_NO_FATAL_FAILURE(startApp());
    ASSERT_NO_FATAL_FAILURE(findItem());
    // openbox answers: there is nothing to say about window placement.
    EXPECT_THAT(rows(openMenu()),
                ElementsAre("No snapshots yet (disabled)", "---", "Save snapshot now",
                            "Not saved yet \u00B7 saves at restart (disabled)", "Timed snapshots >5", "---",
                            "Open at login (on)", "Show snapshots in the file manager", "Quit Tarnwick"));
    const std::vector<Item> menu = openMenu();
    const Item* timed = find(menu, "Timed snapshots");
    ASSERT_TRUE(timed);
    EXPECT_THAT(rows(timed->children),
                ElementsAre("Off (on)", "Every 5 minutes", "Every 15 minutes", "Every 30 minutes", "Every 60 minutes"));
}

TEST_F(TrayTest, SaveNowWritesASnapshotAndASecondOneWithNothingChangedIsSkipped) {
    display->start("xlogo", {"-geometry", "200x150+300+200"});
    ASSERT_TRUE(eventually([&] { return probe->clientsOfClass("XLogo").size() == 1; }));
    ASSERT_NO_FATAL_FAILURE(startServices(true));
    ASSERT_NO_FATAL_FAILURE(startApp());
    ASSERT_NO_FATAL_FAILURE(findItem());

    choose("Save snapshot now");
    ASSERT_TRUE(eventually([&] { return !logLinesWith("save (manual)").empty(); }));
    EXPECT_THAT(logLinesWith("save (manual)"), ElementsAre("save (manual): 1 apps \u00B7 1 windows"));
    auto files = snapshotFiles();
    ASSERT_EQ(files.size(), 1u);
    auto snapshot = decodeSnapshot(readText(files.front()));
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(snapshot->reason, "manual");
    ASSERT_EQ(snapshot->apps.size(), 1u) << "the application itself is never in a snapshot";
    EXPECT_EQ(snapshot->apps.front().name, "Logo");

    // The status line now names the save. A second save a second later finds nothing changed.
    EXPECT_TRUE(eventually([&] {
        for (const std::string& row : rows(openMenu()))
            if (row.rfind("Last saved ", 0) == 0) return true;
        return false;
    })) << "the status line names the save";
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    choose("Save snapshot now");
    ASSERT_TRUE(eventually([&] { return logLinesWith("save (manual)").size() == 2; }));
    EXPECT_EQ(logLinesWith("save (manual)").back(), "save (manual): 1 apps \u00B7 1 windows \u2014 unchanged, skipped");
    EXPECT_EQ(snapshotFiles().size(), 1u);
}

TEST_F(TrayTest, ChoosingAnIntervalIsRememberedAndShownAtTheNextOpening) {
    // The usual umask for the application, whatever ours is; put back after.
    struct Umask {
        mode_t previous = ::umask(022);
        ~Umask() { ::umask(previous); }
    } usual;
    ASSERT_NO_FATAL_FAILURE(startServices(true));
    ASSERT_NO_FATAL_FAILURE(startApp());
    ASSERT_NO_FATAL_FAILURE(findItem());
    choose("Every 5 minutes");
    auto settings = config() / "Tarnwick" / "settings.ini";
    EXPECT_TRUE(eventually([&] {
        auto lines = fileLines(settings);
        return std::find(lines.begin(), lines.end(), "autosaveMinutes=5") != lines.end();
    })) << readText(settings);
    // The folder the settings went into is Tarnwick's own and the user's alone,
    // whatever the umask would have made of it.
    struct stat folder {};
    ASSERT_EQ(::stat(settings.parent_path().c_str(), &folder), 0);
    EXPECT_EQ(folder.st_mode & 07777, 0700u);
    EXPECT_TRUE(eventually([&] { return rows(openMenu()).at(3) == "Not saved yet \u00B7 saves every 5 min and at restart (disabled)"; }));
    const std::vector<Item> menu = openMenu();
    const Item* timed = find(menu, "Timed snapshots");
    ASSERT_TRUE(timed);
    EXPECT_THAT(rows(timed->children),
                ElementsAre("Off", "Every 5 minutes (on)", "Every 15 minutes", "Every 30 minutes", "Every 60 minutes"));

    // A new start reads it back.
    choose("Quit Tarnwick");
    ASSERT_EQ(app->exited(10.0), 0);
    app.reset();
    ASSERT_NO_FATAL_FAILURE(startApp());
    ASSERT_NO_FATAL_FAILURE(findItem());
    EXPECT_EQ(rows(openMenu()).at(3), "Not saved yet \u00B7 saves every 5 min and at restart (disabled)");
}

TEST_F(TrayTest, RestoreOtherSnapshotRelaunchesAQuitProgramPutsItBackAndReports) {
    pid_t logo = display->start("xlogo", {"-geometry", "200x150+300+200"});
    ASSERT_TRUE(eventually([&] { return probe->clientsOfClass("XLogo").size() == 1; }));
    Rect recorded = *probe->frame(probe->clientsOfClass("XLogo").front());
    ASSERT_NO_FATAL_FAILURE(startServices(true));
    ASSERT_NO_FATAL_FAILURE(startApp());
    ASSERT_NO_FATAL_FAILURE(findItem());
    choose("Save snapshot now");
    ASSERT_TRUE(eventually([&] { return snapshotFiles().size() == 1; }));
    // A second snapshot, a second later, with the logo elsewhere.
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    probe->configure(probe->clientsOfClass("XLogo").front(), 700, 500, 300, 200);
    ASSERT_TRUE(eventually([&] { return probe->frame(probe->clientsOfClass("XLogo").front())->x != recorded.x; }));
    choose("Save snapshot now");
    ASSERT_TRUE(eventually([&] { return snapshotFiles().size() == 2; }));
    display->quit(logo);
    ASSERT_TRUE(eventually([&] { return probe->clientsOfClass("XLogo").empty(); }));

    const std::vector<Item> menu = openMenu();
    const Item* other = find(menu, "Restore other snapshot");
    ASSERT_TRUE(other);
    ASSERT_EQ(other->children.size(), 2u);
    EXPECT_THAT(other->children[1].label, ::testing::EndsWith(" (manual) \u2014 1 apps \u00B7 1 windows"));
    choose("Restore other snapshot", 1);  // the older one: the logo where it was first

    ASSERT_TRUE(eventually([&] { return !logLinesWith("restore:").empty(); }, 30.0)) << readText(logFile());
    EXPECT_THAT(logLinesWith("restore:"), ElementsAre("restore: launched 1, windows 1, tabs 0, problems []"));
    EXPECT_TRUE(eventually([&] {
        auto logos = probe->clientsOfClass("XLogo");
        auto frame = logos.size() == 1 ? probe->frame(logos.front()) : std::nullopt;
        return frame && std::abs(frame->x - recorded.x) <= 2 && std::abs(frame->y - recorded.y) <= 2 &&
               std::abs(frame->w - recorded.w) <= 2 && std::abs(frame->h - recorded.h) <= 2;
    })) << "the logo back where the older snapshot had it";
    // The report: an alert of the application's own, answered with Return.
    ASSERT_TRUE(eventually([&] { return alerts().size() == 1; })) << "no report alert";
    if (const char* shots = std::getenv("TARNWICK_SCREENSHOT_DIR")) {
        Program import(programPath("import"), {"-window", "root", std::string(shots) + "/report-alert.png"});
        EXPECT_EQ(import.exited(20.0), 0);
    }
    press("Return");
    EXPECT_TRUE(eventually([&] { return alerts().empty(); })) << "the alert did not close";
}

TEST_F(TrayTest, PowerOffIsHeldBackUntilTheShutdownSnapshotIsStored) {
    ASSERT_NO_FATAL_FAILURE(startServices(false));
    display->start("xlogo", {"-geometry", "200x150+300+200"});
    ASSERT_NO_FATAL_FAILURE(startApp());
    auto inhibit = services->lineStartingWith("inhibit ");
    ASSERT_TRUE(inhibit) << "no inhibitor taken at launch";
    EXPECT_EQ(*inhibit, "inhibit shutdown Tarnwick delay (Saving the session before power-off)");

    services->tell("shutdown");
    auto released = services->lineStartingWith("released ", 15.0);
    // The file is looked at the moment the lock is let go.
    auto files = snapshotFiles();
    ASSERT_TRUE(released) << "the inhibitor was never let go";
    EXPECT_LT(std::stol(released->substr(9)), 10000) << "held within the ten seconds";
    ASSERT_EQ(files.size(), 1u) << "the snapshot is on disk before the lock goes";
    auto snapshot = decodeSnapshot(readText(files.front()));
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(snapshot->reason, "shutdown");
    EXPECT_EQ(logLinesWith("save (shutdown)").size(), 1u);

    // Called off: the next shutdown is held back again.
    services->tell("cancel");
    EXPECT_TRUE(services->lineStartingWith("inhibit shutdown Tarnwick delay")) << "no new inhibitor after a cancel";
}

TEST_F(TrayTest, LoggingOutSavesTheSessionBeforeTheSessionManagerHearsItIsDone) {
    // Started before the session manager is named: X toolkit programs join a
    // session too, and only the application's answer counts here.
    display->start("xlogo", {"-geometry", "200x150+300+200"});
    Program manager(TARNWICK_FAKE_SESSION_MANAGER, {});
    auto address = manager.lineStartingWith("address ");
    ASSERT_TRUE(address) << "the stand-in session manager did not start";
    ScopedVariable sessionManager("SESSION_MANAGER", address->substr(8));
    ASSERT_NO_FATAL_FAILURE(startServices(true));
    ASSERT_NO_FATAL_FAILURE(startApp());
    ASSERT_TRUE(manager.lineStartingWith("registered")) << "the application did not join the session";

    manager.tell("logout");
    auto saved = manager.lineStartingWith("saved ");
    // The folder is looked at the moment the session manager hears back.
    auto files = snapshotFiles();
    ASSERT_TRUE(saved) << "the application never answered the save request";
    EXPECT_EQ(*saved, "saved ok");
    ASSERT_EQ(files.size(), 1u) << "the snapshot is on disk before the answer";
    auto snapshot = decodeSnapshot(readText(files.front()));
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(snapshot->reason, "shutdown");
    EXPECT_EQ(logLinesWith("save (shutdown)").size(), 1u);
}

TEST_F(TrayTest, TheFirstLaunchRegistersTheAutostartEntryAndOpenAtLoginTogglesIt) {
    ASSERT_NO_FATAL_FAILURE(startServices(true));
    ASSERT_NO_FATAL_FAILURE(startApp());
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(autostart()); }));
    auto lines = fileLines(autostart());
    EXPECT_THAT(lines, ::testing::Contains("Exec=\"" + std::string(TARNWICK_PATH) + "\""));
    EXPECT_THAT(lines, ::testing::Contains("Type=Application"));
    ASSERT_NO_FATAL_FAILURE(findItem());

    choose("Open at login");
    EXPECT_TRUE(eventually([&] { return !std::filesystem::exists(autostart()); }));
    EXPECT_TRUE(eventually([&] { return rows(openMenu()).at(6) == "Open at login"; }));
    choose("Open at login");
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(autostart()); }));
    EXPECT_TRUE(eventually([&] { return rows(openMenu()).at(6) == "Open at login (on)"; }));

    // An entry the user removed stays removed at the next start.
    choose("Open at login");
    ASSERT_TRUE(eventually([&] { return !std::filesystem::exists(autostart()); }));
    choose("Quit Tarnwick");
    ASSERT_EQ(app->exited(10.0), 0);
    app.reset();
    ASSERT_NO_FATAL_FAILURE(startApp());
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_FALSE(std::filesystem::exists(autostart()));
}

TEST_F(TrayTest, ASecondStartSaysTarnwickIsAlreadyRunningAndLeavesTheFirstAlone) {
    ASSERT_NO_FATAL_FAILURE(startServices(false));
    ASSERT_NO_FATAL_FAILURE(startApp());
    int error = 0;
    auto second = ChildProcess::start(TARNWICK_PATH, {}, ChildProcess::Input::inherit, ChildProcess::ErrorOutput::pipe,
                                      error);
    ASSERT_TRUE(second) << std::strerror(error);
    auto status = second->waitUntil(std::chrono::steady_clock::now() + std::chrono::seconds(5));
    if (!status) second->terminateInBackground();
    ASSERT_TRUE(status) << "the second start is still running";
    EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << *status;
    std::string said;
    char chunk[4096];
    for (ssize_t n; (n = ::read(second->errorOutput().get(), chunk, sizeof chunk)) > 0;)
        said.append(chunk, static_cast<size_t>(n));
    EXPECT_EQ(said, "tarnwick: Tarnwick is already running\n");
    EXPECT_FALSE(app->exited(0.5)) << "the first keeps running";
    EXPECT_EQ(logLinesWith("launched; boot time ").size(), 1u) << "only the first launched";

    // Once the first has quit, the next start is the application again.
    ::kill(app->pid(), SIGKILL);
    ASSERT_TRUE(app->exited(10.0));
    app.reset();
    ASSERT_NO_FATAL_FAILURE(startApp());
    EXPECT_TRUE(eventually([&] { return logLinesWith("launched; boot time ").size() == 2; }));
}

TEST_F(TrayTest, HandEditedIntervalsThatCannotBeHonouredAreIgnoredWithALogLine) {
    std::filesystem::create_directories(config() / "Tarnwick");
    writeText(config() / "Tarnwick" / "settings.ini", "[General]\nautosaveMinutes=153722867280912930\n");
    ASSERT_NO_FATAL_FAILURE(startServices(false));
    ASSERT_NO_FATAL_FAILURE(startApp());
    EXPECT_THAT(logLinesWith("settings:"), ElementsAre("settings: autosaveMinutes 153722867280912930 is beyond 1440 "
                                                       "minutes; ignored, timed snapshots are off"));
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_TRUE(snapshotFiles().empty()) << "no timer firing without pause";
    EXPECT_FALSE(app->exited(0.1));
    ::kill(app->pid(), SIGKILL);
    ASSERT_TRUE(app->exited(10.0));
    app.reset();

    writeText(config() / "Tarnwick" / "settings.ini", "[General]\nautosaveMinutes=99999999999999999999\n");
    ASSERT_NO_FATAL_FAILURE(startApp());
    EXPECT_TRUE(eventually([&] {
        return logLinesWith("settings:").size() == 2 &&
               logLinesWith("settings:")[1] ==
                   "settings: autosaveMinutes \"99999999999999999999\" is not a number; ignored, read as 0";
    })) << ::testing::PrintToString(logLinesWith("settings:"));
    EXPECT_FALSE(app->exited(0.5)) << "the tray keeps running";
}

TEST_F(TrayTest, ShowSnapshotsAsksTheFileManagerToShowTheFolder) {
    ASSERT_NO_FATAL_FAILURE(startServices(true, true));
    ASSERT_NO_FATAL_FAILURE(startApp());
    ASSERT_NO_FATAL_FAILURE(findItem());
    choose("Show snapshots in the file manager");
    auto shown = services->lineStartingWith("show-");
    ASSERT_TRUE(shown) << "the file manager was not asked";
    EXPECT_EQ(*shown, "show-items file://" + snapshots().string());
}

// A panel with nothing but an XEmbed system tray across the top of the screen.
class XEmbedTrayTest : public TrayTest {
protected:
    void SetUp() override {
        TrayTest::SetUp();
        auto rc = dir().path() / "tint2rc";
        writeText(rc,
                  "panel_items = S\npanel_position = top left horizontal\npanel_size = 100% 32\n"
                  "systray_padding = 4 4 4\nsystray_icon_size = 24\nbackground_color = #303030 100\n");
        tint2.emplace(programPath("tint2"), std::vector<std::string>{"-c", rc.string()});
    }
    void TearDown() override {
        tint2.reset();
        TrayTest::TearDown();
    }
    std::optional<Program> tint2;
};

TEST_F(XEmbedTrayTest, TheIconSitsInTheTrayAndAClickOpensTheMenu) {
    ASSERT_NO_FATAL_FAILURE(startServices(false));
    ASSERT_NO_FATAL_FAILURE(startApp());
    std::optional<Rect> icon;
    ASSERT_TRUE(eventually([&] {
        for (std::uint32_t window : probe->windowsOfClass("Tarnwick")) {
            auto at = probe->onScreen(window);
            // Embedded: shown inside the panel at the top, at tray icon size.
            if (probe->viewable(window) && at && at->y < 32 && at->w <= 32 && at->h <= 32) icon = at;
        }
        return icon.has_value();
    }, 20.0)) << "no icon in the tray";

    Program click(programPath("xdotool"), {"mousemove", std::to_string(icon->x + icon->w / 2),
                                           std::to_string(icon->y + icon->h / 2), "click", "1"});
    EXPECT_EQ(click.exited(10.0), 0);
    std::uint32_t menu = 0;
    ASSERT_TRUE(eventually([&] {
        for (std::uint32_t window : probe->popUps())
            if (probe->wmClass(window) == "Tarnwick") menu = window;
        return menu != 0;
    })) << "the click opened no menu";
    auto shown = probe->onScreen(menu);
    ASSERT_TRUE(shown);
    EXPECT_GT(shown->h, 150) << "a menu of nine items";
    if (const char* shots = std::getenv("TARNWICK_SCREENSHOT_DIR")) {
        Program import(programPath("import"), {"-window", "root", std::string(shots) + "/tray-menu.png"});
        EXPECT_EQ(import.exited(20.0), 0);
    }
    press("Escape");
    EXPECT_TRUE(eventually([&] { return !probe->viewable(menu); })) << "Escape did not close the menu";
}

}  // namespace
}  // namespace tarnwick::testing
