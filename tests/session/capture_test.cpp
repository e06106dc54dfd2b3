// Capture::snapshot on the simulated desktop, with scriptable applications
// answered by a fake interpreter per application.
#include "session/capture.h"

#include "model/snapshot_json.h"
#include "support/snapshot_gen.h"

#include "support/fake_tools.h"
#include "support/sim_desktop.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace tarnwick {
namespace {

using testing::appSpec;
using testing::ScopedPlatform;
using testing::SimDesktop;
using testing::SimWindow;
using testing::TempDir;
using testing::UsingTools;

class SessionCaptureTest : public ::testing::Test {
protected:
    SimDesktop desktop;
    ScopedPlatform installed{desktop};
    TempDir listings{"tarnwick-listings"};
    UsingTools tools{"osascript_per_app"};

    void SetUp() override { setenv("TARNWICK_FAKE_LISTINGS", listings.path().c_str(), 1); }
    void TearDown() override { unsetenv("TARNWICK_FAKE_LISTINGS"); }

    // What the application's capture script prints from now on.
    void answer(const std::string& bundleID, const std::string& listing) {
        testing::writeText(listings.path() / bundleID, listing);
    }
    void refuse(const std::string& bundleID) { testing::writeText(listings.path() / (bundleID + ".fail"), ""); }

    std::int32_t start(const std::optional<std::string>& bundleID, const std::string& path,
                       const std::optional<std::string>& name) {
        return desktop.startApp(appSpec(bundleID, path, name));
    }

    static std::vector<std::string> names(const Snapshot& snapshot) {
        std::vector<std::string> result;
        for (const AppState& app : snapshot.apps) result.push_back(app.name);
        return result;
    }

    static const AppState* find(const Snapshot& snapshot, const std::string& name) {
        for (const AppState& app : snapshot.apps)
            if (app.name == name) return &app;
        return nullptr;
    }
};

SimWindow window(const std::string& title, Frame frame) {
    SimWindow made;
    made.title = title;
    made.frame = frame;
    return made;
}

TEST_F(SessionCaptureTest, RecordsGenericApplicationsWithTheirWindowsInOrder) {
    auto editor = start("com.example.Editor", "/Applications/Editor.app", "Editor");
    desktop.addWindow(editor, window("One", {0, 25, 800, 600}));
    SimWindow two = window("Two", {40, 60, 900, 700});
    two.document = "file:///Users/tester/two.txt";
    two.minimized = true;
    desktop.addWindow(editor, two);
    auto mail = start("com.example.Mail", "/Applications/Mail.app", "Mail");
    desktop.app(mail).hidden = true;
    desktop.frontmost = editor;

    Snapshot snapshot = Capture::snapshot("manual");

    EXPECT_EQ(snapshot.reason, "manual");
    EXPECT_EQ(snapshot.frontmost, "com.example.Editor");
    EXPECT_EQ(snapshot.date, desktop.startDate);
    ASSERT_EQ(names(snapshot), (std::vector<std::string>{"Editor", "Mail"}));
    const AppState& first = snapshot.apps[0];
    EXPECT_EQ(first.kind, AppKind::generic);
    EXPECT_EQ(first.bundleID, "com.example.Editor");
    EXPECT_EQ(first.bundlePath, "/Applications/Editor.app");
    EXPECT_FALSE(first.hidden);
    EXPECT_TRUE(first.scripted.empty());
    ASSERT_EQ(first.windows.size(), 2u);
    EXPECT_EQ(first.windows[0], (WindowState{"One", std::nullopt, Frame{0, 25, 800, 600}, false, false}));
    EXPECT_EQ(first.windows[1],
              (WindowState{"Two", "file:///Users/tester/two.txt", Frame{40, 60, 900, 700}, true, false}));
    EXPECT_TRUE(snapshot.apps[1].hidden);
    EXPECT_TRUE(snapshot.apps[1].windows.empty());
}

TEST_F(SessionCaptureTest, TheSystemItselfIsNeverRecorded) {
    start("com.tarnwick.Tarnwick", "/Applications/Tarnwick.app", "Tarnwick");
    start("com.example.Editor", "/Applications/Editor.app", "Editor");
    EXPECT_EQ(names(Capture::snapshot("auto")), (std::vector<std::string>{"Editor"}));
}

TEST_F(SessionCaptureTest, IdentifiersAreComparedAsOptionals) {
    start(std::nullopt, "/Applications/Unsigned.app", "Unsigned");
    start("com.example.Editor", "/Applications/Editor.app", "Editor");
    // Our own identifier present: an application without one is kept.
    EXPECT_EQ(names(Capture::snapshot("auto")), (std::vector<std::string>{"Unsigned", "Editor"}));
    // Both absent count as equal, so it is taken for ourselves and skipped.
    desktop.ownBundleID.reset();
    EXPECT_EQ(names(Capture::snapshot("auto")), (std::vector<std::string>{"Editor"}));
}

TEST_F(SessionCaptureTest, OnlyRegularApplicationsWithABundleAreRecorded) {
    auto agent = appSpec("com.example.Agent", "/Applications/Agent.app", "Agent");
    agent.policy = ActivationPolicy::accessory;
    desktop.startApp(agent);
    auto daemon = appSpec("com.example.Daemon", "/usr/libexec/daemon", "Daemon");
    daemon.policy = ActivationPolicy::prohibited;
    desktop.startApp(daemon);
    auto gone = start("com.example.Gone", "/Applications/Gone.app", "Gone");
    desktop.quit(gone);
    start("com.example.Editor", "/Applications/Editor.app", "Editor");
    EXPECT_EQ(names(Capture::snapshot("auto")), (std::vector<std::string>{"Editor"}));
}

TEST_F(SessionCaptureTest, MissingNameIsTakenFromTheBundleFileName) {
    start("com.example.Tool", "/Applications/Utilities/Disk Tool.app", std::nullopt);
    start("com.example.Dotted", "/Applications/Version 2.1.app", std::nullopt);
    EXPECT_EQ(names(Capture::snapshot("auto")), (std::vector<std::string>{"Disk Tool", "Version 2.1"}));
}

TEST_F(SessionCaptureTest, WithoutAccessibilityEveryRegularApplicationIsListedWithoutWindows) {
    auto editor = start("com.example.Editor", "/Applications/Editor.app", "Editor");
    desktop.addWindow(editor, window("One", {0, 0, 100, 100}));
    auto mail = start("com.example.Mail", "/Applications/Mail.app", "Mail");
    desktop.addWindow(mail, window("Inbox", {0, 0, 100, 100}));
    desktop.trusted = false;

    Snapshot snapshot = Capture::snapshot("auto");

    ASSERT_EQ(names(snapshot), (std::vector<std::string>{"Editor", "Mail"}));
    for (const AppState& app : snapshot.apps) EXPECT_TRUE(app.windows.empty()) << app.name;
    // The trust check comes first: no window is even looked for.
    EXPECT_EQ(desktop.calls("copyAttribute:AXWindows"), 0);
    EXPECT_EQ(desktop.calls("elementForRemoteToken"), 0);
}

TEST_F(SessionCaptureTest, FinderWithoutFolderWindowsIsLeftOut) {
    start("com.apple.finder", "/System/Library/CoreServices/Finder.app", "Finder");
    start("com.example.Editor", "/Applications/Editor.app", "Editor");
    answer("com.apple.finder", "");
    EXPECT_EQ(names(Capture::snapshot("auto")), (std::vector<std::string>{"Editor"}));
}

TEST_F(SessionCaptureTest, FinderWithOneWindowIsRecordedWithThatWindow) {
    start("com.apple.finder", "/System/Library/CoreServices/Finder.app", "Finder");
    answer("com.apple.finder", "W\t100;80;1020;560\t1\nT\t/Users/tester/Documents/\n");
    Snapshot snapshot = Capture::snapshot("auto");
    ASSERT_EQ(snapshot.apps.size(), 1u);
    const AppState& finder = snapshot.apps[0];
    EXPECT_EQ(finder.kind, AppKind::finder);
    ASSERT_EQ(finder.scripted.size(), 1u);
    EXPECT_EQ(finder.scripted[0].frame, (Frame{100, 80, 920, 480}));
    EXPECT_EQ(finder.scripted[0].items, (TextList{"/Users/tester/Documents/"}));
    EXPECT_EQ(finder.scripted[0].activeIndex, 1);
}

TEST_F(SessionCaptureTest, ScriptedApplicationsNeverCarryAccessibilityWindows) {
    auto chrome = start("com.google.Chrome", "/Applications/Google Chrome.app", "Google Chrome");
    desktop.addWindow(chrome, window("New Tab", {0, 0, 1200, 800}));
    auto safari = start("com.apple.Safari", "/Applications/Safari.app", "Safari");
    desktop.addWindow(safari, window("Start Page", {0, 0, 1200, 800}));
    auto terminal = start("com.apple.Terminal", "/System/Applications/Utilities/Terminal.app", "Terminal");
    desktop.addWindow(terminal, window("zsh", {0, 0, 600, 400}));
    answer("com.google.Chrome", "W\t0;25;1200;825\t2\nT\thttps://example.com/\nT\thttps://example.org/\n");
    answer("com.apple.Safari", "W\t10;25;1210;825\t1\nT\thttps://example.net/\n");

    Snapshot snapshot = Capture::snapshot("auto");

    ASSERT_EQ(names(snapshot), (std::vector<std::string>{"Google Chrome", "Safari", "Terminal"}));
    for (const AppState& app : snapshot.apps) EXPECT_TRUE(app.windows.empty()) << app.name;
    EXPECT_EQ(find(snapshot, "Google Chrome")->kind, AppKind::chromium);
    ASSERT_EQ(find(snapshot, "Google Chrome")->scripted.size(), 1u);
    EXPECT_EQ(find(snapshot, "Google Chrome")->scripted[0].items,
              (TextList{"https://example.com/", "https://example.org/"}));
    EXPECT_EQ(find(snapshot, "Google Chrome")->scripted[0].activeIndex, 2);
    EXPECT_EQ(find(snapshot, "Safari")->scripted.size(), 1u);
    // Terminal's script printed nothing: no windows, but the app is recorded.
    EXPECT_TRUE(find(snapshot, "Terminal")->scripted.empty());
    EXPECT_EQ(desktop.calls("copyAttribute:AXWindows"), 0);
}

TEST_F(SessionCaptureTest, ApplicationWhoseScriptFailsIsStillRecorded) {
    start("com.apple.Safari", "/Applications/Safari.app", "Safari");
    start("com.apple.finder", "/System/Library/CoreServices/Finder.app", "Finder");
    refuse("com.apple.Safari");
    refuse("com.apple.finder");
    Snapshot snapshot = Capture::snapshot("auto");
    // Safari stays, with nothing; Finder without folders is left out as always.
    ASSERT_EQ(names(snapshot), (std::vector<std::string>{"Safari"}));
    EXPECT_TRUE(snapshot.apps[0].scripted.empty());
}

TEST_F(SessionCaptureTest, FrontmostIsAbsentWithoutAFrontmostApplicationOrItsIdentifier) {
    start("com.example.Editor", "/Applications/Editor.app", "Editor");
    EXPECT_EQ(Capture::snapshot("auto").frontmost, std::nullopt);
    desktop.frontmost = start(std::nullopt, "/Applications/Unsigned.app", "Unsigned");
    EXPECT_EQ(Capture::snapshot("auto").frontmost, std::nullopt);
}

TEST_F(SessionCaptureTest, DateIsTheDesktopClocksCurrentDate) {
    desktop.sleep(42);
    start("com.example.Editor", "/Applications/Editor.app", "Editor");
    EXPECT_EQ(Capture::snapshot("cli").date, desktop.startDate + std::chrono::seconds(42));
}

TEST_F(SessionCaptureTest, TextsThatAreNotUtf8AreCapturedAsTheirFileHoldsThem) {
    const std::string bad = "\xC3(\xFF";
    desktop.frontmost = start("com.example." + bad, "/Applications/Ed" + bad + "itor.app", "Editor" + bad);
    SimWindow made = window("Draft" + bad, Frame{10, 40, 600, 400});
    made.document = "file:///tmp/" + bad;
    desktop.addWindow(*desktop.frontmost, made);

    Snapshot snapshot = Capture::snapshot("auto");
    ASSERT_EQ(snapshot.apps.size(), 1u);
    EXPECT_TRUE(textsAreValidUtf8(snapshot));
    EXPECT_EQ(snapshot.apps[0].name, "Editor\xEF\xBF\xBD(\xEF\xBF\xBD");
    EXPECT_EQ(snapshot.frontmost, snapshot.apps[0].bundleID);
    auto reread = decodeSnapshot(*encodeSnapshot(snapshot));
    ASSERT_TRUE(reread);
    EXPECT_TRUE(testing::sameSnapshot(*reread, snapshot)) << "the session equals its own file";
}

TEST_F(SessionCaptureTest, EmptyDesktopGivesAnEmptySnapshot) {
    Snapshot snapshot = Capture::snapshot("auto");
    EXPECT_TRUE(snapshot.apps.empty());
    EXPECT_EQ(snapshot.summary(), "0 apps · 0 windows");
}

}  // namespace
}  // namespace tarnwick
