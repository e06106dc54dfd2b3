// The X11 backend in this process, on a real display: which windows count,
// where titles come from, what trust means, and relaunches that cannot start.
#include "platform/platform.h"
#include "session/capture.h"
#include "platform/x11/platform_x11.h"
#include "session/restore.h"
#include "support/log_watch.h"
#include "support/scoped_variable.h"
#include "support/temp_dir.h"
#include "support/virtual_display.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <limits>

namespace tarnwick::testing {
namespace {

using Kind = DisplayProbe::Kind;

// The backend installed for one test, the simulated desktop given back after.
class Installed {
public:
    Installed() {
        std::string why;
        backend_ = openX11Platform("", why);
        if (!backend_) ADD_FAILURE() << why;
        previous_ = installPlatform(backend_.get());
    }
    ~Installed() { installPlatform(previous_); }
    Platform& operator*() { return *backend_; }
    Platform* operator->() { return backend_.get(); }

private:
    std::unique_ptr<Platform> backend_;
    Platform* previous_ = nullptr;
};

std::string ownExecutable() { return std::filesystem::read_symlink("/proc/self/exe").string(); }

const AppState* appAt(const Snapshot& snapshot, const std::string& bundlePath) {
    for (const AppState& app : snapshot.apps)
        if (app.bundlePath == bundlePath) return &app;
    return nullptr;
}

std::vector<std::string> titles(const AppState& app) {
    std::vector<std::string> found;
    for (const WindowState& window : app.windows) found.push_back(window.title.value_or("<none>"));
    std::sort(found.begin(), found.end());
    return found;
}

class BackendTest : public ::testing::Test {
protected:
    void entry(const std::string& id, const std::string& text) {
        auto file = dir.path() / "share" / "applications" / (id + ".desktop");
        std::filesystem::create_directories(file.parent_path());
        writeText(file, "[Desktop Entry]\nType=Application\n" + text);
    }

    TempDir dir{"tarnwick-x11"};
    ScopedVariable dataHome{"XDG_DATA_HOME", (dir.path() / "share").string()};
};

TEST_F(BackendTest, DialogsAndTransientWindowsAreLeftOutOfACapture) {
    VirtualDisplay display;
    DisplayProbe probe;
    std::uint32_t main = probe.createWindow("Main window", Kind::normal);
    probe.createWindow("Preferences", Kind::dialog);
    probe.createWindow("Palette", Kind::transient, main);
    // No window type at all counts as normal, as for the window manager.
    probe.createWindow("Untyped", Kind::untyped);
    ASSERT_TRUE(eventually([&] { return probe.clients().size() == 4; }));

    Installed x11;
    Snapshot snapshot = Capture::snapshot("test");
    const AppState* app = appAt(snapshot, ownExecutable());
    ASSERT_NE(app, nullptr) << "the probe's windows belong to this process";
    EXPECT_EQ(app->bundleID, std::nullopt);
    EXPECT_EQ(app->name, "Probe");
    EXPECT_EQ(titles(*app), (std::vector<std::string>{"Main window", "Untyped"}));
}

TEST_F(BackendTest, AProcessWithOnlyAPanelIsPartOfTheDesktopAndNotCaptured) {
    VirtualDisplay display;
    DisplayProbe probe;
    probe.createWindow("Panel", Kind::dock);
    ASSERT_TRUE(eventually([&] { return probe.clients().size() == 1; }));
    {
        Installed x11;
        EXPECT_EQ(appAt(Capture::snapshot("test"), ownExecutable()), nullptr);
    }
    // With a window of its own it is an application like any other; the
    // panel is still not one of its windows.
    probe.createWindow("Notes", Kind::normal);
    ASSERT_TRUE(eventually([&] { return probe.clients().size() == 2; }));
    Installed x11;
    Snapshot snapshot = Capture::snapshot("test");
    const AppState* app = appAt(snapshot, ownExecutable());
    ASSERT_NE(app, nullptr);
    EXPECT_EQ(titles(*app), (std::vector<std::string>{"Notes"}));
}

TEST_F(BackendTest, ATitleOnlyInWmNameIsReadFromThere) {
    VirtualDisplay display;
    DisplayProbe probe;
    probe.createWindow("Plain \xE9t\xE9", Kind::normal, 0, /*legacyTitle=*/true);
    ASSERT_TRUE(eventually([&] { return probe.clients().size() == 1; }));

    Installed x11;
    const AppState* app = nullptr;
    Snapshot snapshot = Capture::snapshot("test");
    app = appAt(snapshot, ownExecutable());
    ASSERT_NE(app, nullptr);
    // WM_NAME of type STRING is Latin-1; the snapshot holds UTF-8.
    EXPECT_EQ(titles(*app), (std::vector<std::string>{"Plain \xC3\xA9t\xC3\xA9"}));
}

TEST_F(BackendTest, TrustMeansAWindowManagerAnswersOnTheDisplay) {
    {
        VirtualDisplay bare(/*windowManager=*/false);
        Installed x11;
        EXPECT_FALSE(x11->accessibilityTrusted());
        EXPECT_TRUE(x11->runningApplications().empty());
    }
    VirtualDisplay managed;
    Installed x11;
    EXPECT_TRUE(x11->accessibilityTrusted());
}

TEST_F(BackendTest, TarnwicksOwnWindowsAreNeverCaptured) {
    // The probe plays Tarnwick: its class matches Tarnwick's own desktop entry.
    entry("com.tarnwick.Tarnwick", "Name=Tarnwick\nExec=tarnwick\nStartupWMClass=Probe\n");
    VirtualDisplay display;
    DisplayProbe probe;
    probe.createWindow("Tarnwick", Kind::normal);
    ASSERT_TRUE(eventually([&] { return probe.clients().size() == 1; }));

    Installed x11;
    ASSERT_EQ(x11->ownBundleIdentifier(), "com.tarnwick.Tarnwick.desktop");
    ASSERT_EQ(x11->runningApplications("com.tarnwick.Tarnwick.desktop").size(), 1u);
    EXPECT_TRUE(Capture::snapshot("test").apps.empty());
}

TEST_F(BackendTest, AnAppWhoseProgramIsGoneIsAProblemAndTheRestStillComesBack) {
    entry("gone", "Name=Gone\nExec=tarnwick-no-such-program --flag\n");
    entry("xlogo", "Name=Logo\nExec=xlogo\n");
    VirtualDisplay display;
    DisplayProbe probe;
    Installed x11;

    Snapshot snapshot;
    for (const char* id : {"gone", "xlogo"}) {
        AppState app;
        app.name = id == std::string("gone") ? "Gone" : "Logo";
        app.bundleID = std::string(id) + ".desktop";
        app.bundlePath = (dir.path() / "share" / "applications" / (std::string(id) + ".desktop")).string();
        WindowState window;
        window.frame = Frame{300, 200, 250, 190};
        app.windows.push_back(window);
        snapshot.apps.push_back(app);
    }
    LogWatch log;
    Restore::Result result = Restore::run(snapshot, [](const std::string&) {});
    EXPECT_EQ(result.launched, 1);
    EXPECT_EQ(result.windows, 1);
    EXPECT_EQ(result.problems, (std::vector<std::string>{"Gone: could not launch"}));
    EXPECT_NE(log.newText().find("launch gone.desktop: No such file or directory\n"), std::string::npos)
        << log.newText();
    // The frame as drawn is the one asked for; mutter's frame window also holds
    // invisible borders to grab, up to 10 px on each side.
    const int border = testWindowManager() == "mutter" ? 10 : 0;
    auto holds = [border](const Rect& drawn, int x, int y, int w, int h) {
        auto within = [border](int outer, int inner) { return outer <= inner && inner - outer <= border; };
        return within(drawn.x, x) && within(drawn.y, y) && within(x + w, drawn.x + drawn.w) &&
               within(y + h, drawn.y + drawn.h);
    };
    std::optional<Rect> frame;
    EXPECT_TRUE(eventually([&] {
        auto logos = probe.clientsOfClass("XLogo");
        frame = logos.size() == 1 ? probe.frame(logos.front()) : std::nullopt;
        return frame && holds(*frame, 300, 200, 250, 190);
    })) << (frame ? std::to_string(frame->x) + "," + std::to_string(frame->y) + " " + std::to_string(frame->w) + "x" +
                        std::to_string(frame->h)
                  : "no window");
}

}  // namespace
}  // namespace tarnwick::testing

namespace tarnwick::testing {
namespace {

TEST_F(BackendTest, ActivatingAnApplicationNeverShowsAMinimizedWindow) {
    VirtualDisplay display;
    DisplayProbe probe;
    std::uint32_t first = probe.createWindow("First", Kind::normal);
    std::uint32_t second = probe.createWindow("Second", Kind::normal);
    ASSERT_TRUE(eventually([&] { return probe.clients().size() == 2; }));
    probe.requestIconify(first);
    ASSERT_TRUE(eventually([&] { return probe.hidden(first); }));

    Installed x11;
    std::optional<App> self;
    for (const App& app : x11->runningApplications())
        if (x11->appInfo(app).pid == ::getpid()) self = app;
    ASSERT_TRUE(self);
    x11->activate(*self);
    EXPECT_TRUE(eventually([&] { return x11->frontmostApplication().has_value(); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_TRUE(probe.hidden(first)) << "the minimized window stays minimized";

    // With every window minimized, nothing is shown at all.
    probe.requestIconify(second);
    ASSERT_TRUE(eventually([&] { return probe.hidden(second); }));
    x11->activate(*self);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_TRUE(probe.hidden(first));
    EXPECT_TRUE(probe.hidden(second));
}

}  // namespace
}  // namespace tarnwick::testing

namespace tarnwick::testing {
namespace {

TEST_F(BackendTest, AFrameNoScreenCanShowLeavesTheWindowWhereItIsAndTheOtherStillMoves) {
    VirtualDisplay display;
    DisplayProbe probe;
    std::uint32_t first = probe.createWindow("First", Kind::normal);
    std::uint32_t second = probe.createWindow("Second", Kind::normal);
    ASSERT_TRUE(eventually([&] { return probe.clients().size() == 2; }));
    probe.configure(first, 100, 120, 300, 200);
    probe.configure(second, 500, 120, 300, 200);
    std::optional<Rect> before;
    ASSERT_TRUE(eventually([&] {
        before = probe.frame(first);
        auto other = probe.frame(second);
        return before && other && before->x >= 90 && before->x <= 110 && other->x >= 490 && other->x <= 510;
    }));

    Installed x11;
    Snapshot snapshot = Capture::snapshot("test");
    std::erase_if(snapshot.apps, [](const AppState& app) { return app.bundlePath != ownExecutable(); });
    ASSERT_EQ(snapshot.apps.size(), 1u);
    for (WindowState& window : snapshot.apps[0].windows) {
        if (window.title == "First") {
            window.frame = Frame{1e300, -1e300, 1e300, 1e300};
            window.workspace = std::numeric_limits<std::int64_t>::max();
        } else {
            window.frame = Frame{700, 300, 320, 240};
        }
    }
    Restore::Result result = Restore::run(snapshot, [](const std::string&) {});
    EXPECT_EQ(result.windows, 2);
    EXPECT_TRUE(result.problems.empty());
    EXPECT_TRUE(eventually([&] {
        auto moved = probe.frame(second);
        return moved && std::abs(moved->x - 700) <= 10 && std::abs(moved->y - 300) <= 10;
    }));
    auto after = probe.frame(first);
    ASSERT_TRUE(after);
    EXPECT_EQ(after->x, before->x);
    EXPECT_EQ(after->y, before->y);
    EXPECT_EQ(after->w, before->w);
    EXPECT_EQ(after->h, before->h);
    EXPECT_EQ(probe.workspace(first), std::optional<std::uint32_t>(0));
}

}  // namespace
}  // namespace tarnwick::testing

namespace tarnwick::testing {
namespace {

TEST_F(BackendTest, AnEntryWrittenWhileTheBackendRunsNamesTheProgramAtTheNextCapture) {
    entry("other", "Name=Other\nExec=other-program\n");
    VirtualDisplay display;
    DisplayProbe probe;
    probe.createWindow("Work", Kind::normal);
    ASSERT_TRUE(eventually([&] { return probe.clients().size() == 1; }));

    Installed x11;  // one backend for the whole test, as the tray keeps one
    const AppState* app = nullptr;
    Snapshot before = Capture::snapshot("test");
    app = appAt(before, ownExecutable());
    ASSERT_NE(app, nullptr) << "no entry names it yet: known by its executable";
    EXPECT_EQ(app->bundleID, std::nullopt);

    entry("probe-tool", "Name=Probe Tool\nExec=probe-tool\nStartupWMClass=Probe\n");
    auto file = dir.path() / "share" / "applications" / "probe-tool.desktop";
    Snapshot after = Capture::snapshot("test");
    app = appAt(after, file.string());
    ASSERT_NE(app, nullptr) << "the new entry names it";
    EXPECT_EQ(app->bundleID, "probe-tool.desktop");
    EXPECT_EQ(app->name, "Probe Tool");

    std::filesystem::remove(file);
    Snapshot removed = Capture::snapshot("test");
    EXPECT_NE(appAt(removed, ownExecutable()), nullptr) << "the entry is gone: known by its executable again";
}

}  // namespace
}  // namespace tarnwick::testing
