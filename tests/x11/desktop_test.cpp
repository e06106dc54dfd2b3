// Capture and restore on a real X11 desktop: Xvfb, openbox and real X11
// programs, driven through the product binary as a user would run it. What the
// window manager shows is checked through a probe of its own.
#include "model/snapshot_json.h"
#include "support/scoped_variable.h"
#include "support/temp_dir.h"
#include "support/virtual_display.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <map>

namespace tarnwick::testing {
namespace {

struct Finished {
    int status = -1;
    std::string out;
    std::string err;
    bool succeeded() const { return WIFEXITED(status) && WEXITSTATUS(status) == 0; }
};

std::string drain(UniqueFd& fd) {
    std::string text;
    char buffer[65536];
    for (ssize_t n; (n = retryOnEintr([&] { return ::read(fd.get(), buffer, sizeof buffer); })) > 0;)
        text.append(buffer, static_cast<size_t>(n));
    return text;
}

Finished tarnwick(const std::vector<std::string>& arguments) {
    int error = 0;
    auto child = ChildProcess::start(TARNWICK_PATH, arguments, ChildProcess::Input::inherit,
                                     ChildProcess::ErrorOutput::pipe, error);
    if (!child) return {};
    Finished finished;
    // Standard error holds a line or two: read after standard output without
    // risk of a full pipe.
    finished.out = drain(child->output());
    finished.err = drain(child->errorOutput());
    finished.status = child->wait();
    return finished;
}

// A window as the user sees it: where its frame is drawn, and its state.
struct Seen {
    Rect frame;
    bool minimized = false;
    bool fullScreen = false;
};

std::string describe(const Seen& seen) {
    return std::to_string(seen.frame.x) + "," + std::to_string(seen.frame.y) + " " + std::to_string(seen.frame.w) +
           "x" + std::to_string(seen.frame.h) + (seen.minimized ? " minimized" : "") +
           (seen.fullScreen ? " full screen" : "");
}

bool near(const Seen& a, const Seen& b) {
    auto close = [](int x, int y) { return std::abs(x - y) <= 2; };
    return close(a.frame.x, b.frame.x) && close(a.frame.y, b.frame.y) && close(a.frame.w, b.frame.w) &&
           close(a.frame.h, b.frame.h) && a.minimized == b.minimized && a.fullScreen == b.fullScreen;
}

class DesktopTest : public ::testing::Test {
protected:
    void SetUp() override {
        display = std::make_unique<VirtualDisplay>();
        probe = std::make_unique<DisplayProbe>();
        // The desktop entries are ours alone: the machine's own must not decide
        // which apps have an identifier. Set after openbox started, since it
        // finds its theme through the same folders.
        dataHome.emplace("XDG_DATA_HOME", (dir.path() / "share").string());
        dataDirs.emplace("XDG_DATA_DIRS", (dir.path() / "none").string());
    }

    void TearDown() override {
        probe.reset();
        display.reset();
        dataDirs.reset();
        dataHome.reset();
    }

    std::filesystem::path entry(const std::string& id, const std::string& name, const std::string& exec) {
        auto file = dir.path() / "share" / "applications" / (id + ".desktop");
        std::filesystem::create_directories(file.parent_path());
        writeText(file, "[Desktop Entry]\nType=Application\nName=" + name + "\nExec=" + exec + "\n");
        return file;
    }

    // Every managed window of each class, as seen now.
    std::map<std::string, std::vector<Seen>> seenByClass(const std::vector<std::string>& classes) {
        std::map<std::string, std::vector<Seen>> seen;
        for (const std::string& wmClass : classes)
            for (std::uint32_t window : probe->clientsOfClass(wmClass)) {
                auto frame = probe->frame(window);
                if (frame) seen[wmClass].push_back(Seen{*frame, probe->hidden(window), probe->fullScreen(window)});
            }
        return seen;
    }

    // Waits until each class shows exactly one window as expected; the
    // difference when it never does.
    std::string settlesAs(const std::map<std::string, Seen>& expected, double seconds = 15.0) {
        std::vector<std::string> classes;
        for (const auto& [wmClass, seen] : expected) classes.push_back(wmClass);
        std::map<std::string, std::vector<Seen>> now;
        bool settled = eventually(
            [&] {
                now = seenByClass(classes);
                for (const auto& [wmClass, want] : expected) {
                    auto found = now.find(wmClass);
                    if (found == now.end() || found->second.size() != 1 || !near(found->second.front(), want))
                        return false;
                }
                return true;
            },
            seconds);
        if (settled) return "";
        std::string report;
        for (const auto& [wmClass, want] : expected) {
            report += wmClass + ": want " + describe(want) + ", have";
            for (const Seen& have : now[wmClass]) report += " [" + describe(have) + "]";
            report += "\n";
        }
        return report;
    }

    // The arrangement both scenarios start from: a plain window, a minimized
    // one, a full-screen one and one more plain window.
    void arrange() {
        pids.push_back(display->start("xlogo", {"-geometry", "220x160+120+140"}));
        pids.push_back(display->start("xclock", {"-iconic", "-geometry", "170x170+640+130"}));
        pids.push_back(display->start("xterm", {"-fullscreen"}));
        pids.push_back(display->start("xeyes", {"-geometry", "160x110+900+520"}));
        // The full-screen state is set before the window manager resizes the
        // window: arranged means the screen-sized frame is there too.
        Seen screen{Rect{0, 0, display->width(), display->height()}, false, true};
        ASSERT_TRUE(eventually([&] {
            auto seen = seenByClass({"XLogo", "XClock", "XTerm", "XEyes"});
            return seen.size() == 4 && seen["XClock"].front().minimized && near(seen["XTerm"].front(), screen);
        })) << "the programs did not come up as arranged: " << probe->clients().size() << " clients";
        for (const auto& [wmClass, windows] : seenByClass({"XLogo", "XClock", "XTerm", "XEyes"}))
            arranged[wmClass] = windows.front();
        // The frames are where we asked for them, drawn around the clients.
        EXPECT_EQ(arranged["XLogo"].frame.x, 120);
        EXPECT_EQ(arranged["XLogo"].frame.y, 140);
        EXPECT_GT(arranged["XLogo"].frame.h, 160) << "openbox draws a title bar";
        EXPECT_EQ(arranged["XEyes"].frame.x, 900);
    }

    std::filesystem::path captureToFile() {
        Finished capture = tarnwick({"--capture"});
        EXPECT_TRUE(capture.succeeded()) << capture.err;
        EXPECT_EQ(capture.err, "4 apps · 4 windows; accessibility on\n");
        auto file = dir.path() / "session.json";
        writeText(file, capture.out);
        return file;
    }

    TempDir dir{"tarnwick-x11"};
    std::optional<ScopedVariable> dataHome, dataDirs;
    std::unique_ptr<VirtualDisplay> display;
    std::unique_ptr<DisplayProbe> probe;
    std::vector<pid_t> pids;
    std::map<std::string, Seen> arranged;
};

const WindowState& onlyWindow(const Snapshot& snapshot, const std::string& name) {
    for (const AppState& app : snapshot.apps)
        if (app.name == name && app.windows.size() == 1) return app.windows.front();
    ADD_FAILURE() << "no app " << name << " with one window";
    static const WindowState none;
    return none;
}

TEST_F(DesktopTest, QuitAppsComeBackWithTheirFramesAndStates) {
    entry("xlogo", "Logo", "xlogo");
    entry("xclock", "Clock", "xclock");
    auto xtermEntry = entry("xterm", "Terminal", "xterm");
    // xeyes has no desktop entry: it is known by its executable alone.
    ASSERT_NO_FATAL_FAILURE(arrange());

    auto file = captureToFile();
    auto snapshot = decodeSnapshot(readText(file));
    ASSERT_TRUE(snapshot);
    ASSERT_EQ(snapshot->apps.size(), 4u);
    for (const AppState& app : snapshot->apps) {
        EXPECT_EQ(app.kind, AppKind::generic) << app.name;
        EXPECT_FALSE(app.hidden) << app.name;
        if (app.name == "Terminal") {
            EXPECT_EQ(app.bundleID, "xterm.desktop");
            EXPECT_EQ(app.bundlePath, xtermEntry.string());
        }
        if (app.name == "XEyes") {
            EXPECT_EQ(app.bundleID, std::nullopt);
            EXPECT_EQ(app.bundlePath, programPath("xeyes"));
        }
    }
    EXPECT_TRUE(onlyWindow(*snapshot, "Clock").minimized);
    EXPECT_TRUE(onlyWindow(*snapshot, "Terminal").fullScreen);
    EXPECT_EQ(onlyWindow(*snapshot, "Logo").title, "xlogo");

    for (pid_t pid : pids) display->quit(pid);
    ASSERT_TRUE(eventually([&] { return probe->clients().empty(); })) << "the apps did not quit";

    Finished restore = tarnwick({"--restore", file.string()});
    EXPECT_TRUE(restore.succeeded()) << restore.err;
    EXPECT_NE(restore.out.find("launched 4, windows 4, tabs 0\n"), std::string::npos) << restore.out;
    EXPECT_EQ(restore.out.find("problem:"), std::string::npos) << restore.out;
    EXPECT_EQ(settlesAs(arranged), "");
}

TEST_F(DesktopTest, RunningAppsThatWereMovedGoBackWithoutASecondCopy) {
    entry("xlogo", "Logo", "xlogo");
    entry("xclock", "Clock", "xclock");
    entry("xterm", "Terminal", "xterm");
    entry("xeyes", "Eyes", "xeyes");
    ASSERT_NO_FATAL_FAILURE(arrange());
    auto file = captureToFile();

    // The user moves and resizes two windows and brings the minimized one back.
    std::uint32_t logo = probe->clientsOfClass("XLogo").front();
    std::uint32_t eyes = probe->clientsOfClass("XEyes").front();
    std::uint32_t clock = probe->clientsOfClass("XClock").front();
    probe->configure(logo, 700, 600, 300, 200);
    probe->configure(eyes, 40, 60, 100, 90);
    probe->map(clock);
    probe->configure(clock, 300, 320, 170, 170);
    ASSERT_TRUE(eventually([&] {
        auto now = seenByClass({"XLogo", "XEyes", "XClock"});
        return now.size() == 3 && !near(now["XLogo"].front(), arranged["XLogo"]) &&
               !near(now["XEyes"].front(), arranged["XEyes"]) && !now["XClock"].front().minimized;
    })) << "the windows did not move";

    Finished restore = tarnwick({"--restore", file.string()});
    EXPECT_TRUE(restore.succeeded()) << restore.err;
    EXPECT_NE(restore.out.find("launched 0, windows 4, tabs 0\n"), std::string::npos) << restore.out;
    EXPECT_EQ(settlesAs(arranged), "");
    EXPECT_EQ(probe->clients().size(), 4u);
}

TEST_F(DesktopTest, WithoutAModeTheProgramSaysTheMenuBarApplicationIsForMacs) {
    Finished finished = tarnwick({});
    EXPECT_TRUE(WIFEXITED(finished.status) && WEXITSTATUS(finished.status) == 2);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.err,
              "tarnwick: the menu-bar application runs on macOS only; here use --capture or --restore FILE\n");
}

}  // namespace
}  // namespace tarnwick::testing
