// The simulated desktop as script host: the real capture and restore functions
// run against it and see what a scripted application would do.
#include "scripting/capture_scripts.h"
#include "scripting/restore_scripts.h"
#include "support/sim_desktop.h"

#include <gtest/gtest.h>

namespace tarnwick::testing {
namespace {

class SimScriptsTest : public ::testing::Test {
protected:
    SimDesktop desktop;
    ScopedPlatform installed{desktop};
    ScopedScripts scripts{desktop};

    std::int32_t start(const std::string& bundleID, const std::string& name) {
        return desktop.startApp(appSpec(bundleID, "/Applications/" + name + ".app", name));
    }
    std::uint64_t browserWindow(std::int32_t pid, std::vector<std::string> tabs, std::int64_t active = 1,
                                Frame frame = {0, 25, 1200, 800}) {
        SimWindow made;
        made.tabs = std::move(tabs);
        made.activeTab = active;
        made.frame = frame;
        return desktop.addWindow(pid, made);
    }
};

TEST_F(SimScriptsTest, ChromiumCaptureListsWindowsFrontToBackWithoutIncognito) {
    auto chrome = start("com.google.Chrome", "Google Chrome");
    browserWindow(chrome, {"https://a.example/", "https://b.example/"}, 2, {10, 30, 800, 600});
    SimWindow secret;
    secret.tabs = {"https://secret.example/"};
    secret.incognito = true;
    desktop.addWindow(chrome, secret);
    browserWindow(chrome, {"https://c.example/"});

    auto windows = Scripts::captureChromium("com.google.Chrome");

    ASSERT_TRUE(windows);
    ASSERT_EQ(windows->size(), 2u);
    EXPECT_EQ((*windows)[0].items, TextList{"https://c.example/"});
    EXPECT_EQ((*windows)[1], (ScriptedWindow{Frame{10, 30, 800, 600}, {"https://a.example/", "https://b.example/"}, 2}));
    EXPECT_EQ(desktop.scriptRunsOf("captureChromium"), 1);
}

TEST_F(SimScriptsTest, GuardedCaptureOfAnApplicationThatIsNotRunningIsEmpty) {
    auto windows = Scripts::captureSafari();
    ASSERT_TRUE(windows);
    EXPECT_TRUE(windows->empty());
}

TEST_F(SimScriptsTest, ChromiumRestoreMakesTheWindowWithItsTabsBoundsAndActiveTab) {
    auto chrome = start("com.google.Chrome", "Google Chrome");
    ASSERT_TRUE(Scripts::restoreChromium(
        "com.google.Chrome", ScriptedWindow{Frame{20, 40, 900, 700}, {"https://a.example/", "", "https://\"q\"/"}, 1}));
    auto ids = desktop.visibleWindows(chrome);
    ASSERT_EQ(ids.size(), 1u);
    const SimWindow& made = desktop.window(ids[0]);
    EXPECT_EQ(made.tabs, (std::vector<std::string>{"https://a.example/", "https://\"q\"/"}));
    EXPECT_EQ(made.activeTab, 1);
    EXPECT_EQ(made.frame, (Frame{20, 40, 900, 700}));
    EXPECT_EQ(desktop.scriptRunsOf("restoreChromium"), 1);
}

TEST_F(SimScriptsTest, AnActiveIndexOutOfRangeIsAbsorbedByItsTry) {
    auto chrome = start("com.google.Chrome", "Google Chrome");
    ASSERT_TRUE(Scripts::restoreChromium("com.google.Chrome", ScriptedWindow{std::nullopt, {"https://a.example/"}, 7}));
    EXPECT_EQ(desktop.window(desktop.visibleWindows(chrome)[0]).activeTab, 1);
}

TEST_F(SimScriptsTest, SafariRestoreKeepsTheFirstTabCurrentUntilTold) {
    auto safari = start("com.apple.Safari", "Safari");
    ASSERT_TRUE(Scripts::restoreSafari(ScriptedWindow{std::nullopt, {"https://a.example/", "https://b.example/"}, 2}));
    const SimWindow& made = desktop.window(desktop.visibleWindows(safari)[0]);
    EXPECT_EQ(made.tabs, (std::vector<std::string>{"https://a.example/", "https://b.example/"}));
    EXPECT_EQ(made.activeTab, 2);
    EXPECT_EQ(desktop.scriptRunsOf("restoreSafari"), 1);
}

TEST_F(SimScriptsTest, FinderOpensExistingFoldersOnlyAndCapturesThem) {
    auto finder = start("com.apple.finder", "Finder");
    desktop.addFile("/Users/tester/Documents");
    EXPECT_TRUE(Scripts::restoreFinder(ScriptedWindow{Frame{100, 80, 920, 480}, {"/Users/tester/Documents/"}, 1}));
    EXPECT_FALSE(Scripts::restoreFinder(ScriptedWindow{std::nullopt, {"/Users/tester/Gone/"}, 1}));
    EXPECT_EQ(desktop.visibleWindows(finder).size(), 1u);
    auto windows = Scripts::captureFinder();
    ASSERT_TRUE(windows);
    EXPECT_EQ(*windows,
              (std::vector<ScriptedWindow>{{Frame{100, 80, 920, 480}, {"/Users/tester/Documents/"}, 1}}));
}

TEST_F(SimScriptsTest, TerminalWindowsCdIntoTheirFolderAndAreFoundThroughPsAndLsof) {
    auto terminal = start("com.apple.Terminal", "Terminal");
    desktop.addFile("/Users/tester/it's here");
    ASSERT_TRUE(Scripts::restoreTerminal(ScriptedWindow{Frame{0, 25, 600, 400}, {"/Users/tester/it's here"}, 1}, false));
    // A folder that is gone leaves the new shell at home.
    ASSERT_TRUE(Scripts::restoreTerminal(ScriptedWindow{std::nullopt, {"/nowhere"}, 1}, false));
    EXPECT_EQ(desktop.visibleWindows(terminal).size(), 2u);

    auto windows = Scripts::captureTerminal();

    ASSERT_TRUE(windows);
    ASSERT_EQ(windows->size(), 2u);
    EXPECT_EQ((*windows)[0].items, TextList{"/Users/tester"});
    EXPECT_EQ((*windows)[1], (ScriptedWindow{Frame{0, 25, 600, 400}, {"/Users/tester/it's here"}, 1}));
    EXPECT_EQ(desktop.calls("tool:ps"), 2);
    EXPECT_EQ(desktop.calls("tool:lsof"), 2);
}

TEST_F(SimScriptsTest, TerminalReusingTheFrontWindowOpensNoOther) {
    auto terminal = start("com.apple.Terminal", "Terminal");
    SimWindow fresh;
    fresh.tty = "/dev/ttys001";
    fresh.shellDirectory = desktop.home;
    auto id = desktop.addWindow(terminal, fresh);
    desktop.addFile("/tmp");
    ASSERT_TRUE(Scripts::restoreTerminal(ScriptedWindow{Frame{5, 30, 500, 300}, {"/tmp"}, 1}, true));
    EXPECT_EQ(desktop.visibleWindows(terminal), std::vector<std::uint64_t>{id});
    EXPECT_EQ(desktop.window(id).shellDirectory, "/tmp");
    EXPECT_EQ(desktop.window(id).frame, (Frame{5, 30, 500, 300}));
}

TEST_F(SimScriptsTest, ITermMakesOneTabPerDirectory) {
    auto iterm = start("com.googlecode.iterm2", "iTerm");
    desktop.addFile("/a");
    desktop.addFile("/b");
    ASSERT_TRUE(Scripts::restoreITerm(ScriptedWindow{Frame{0, 25, 700, 500}, {"/a", "/b", "/missing"}, 1}));
    const SimWindow& made = desktop.window(desktop.visibleWindows(iterm)[0]);
    EXPECT_EQ(made.tabs, (std::vector<std::string>{"/a", "/b", "/Users/tester"}));
    auto windows = Scripts::captureITerm();
    ASSERT_TRUE(windows);
    EXPECT_EQ(*windows, (std::vector<ScriptedWindow>{{Frame{0, 25, 700, 500}, {"/a", "/b", "/Users/tester"}, 1}}));
}

TEST_F(SimScriptsTest, ClosingBlankWindowsClosesOnlySingleBlankTabs) {
    auto chrome = start("com.google.Chrome", "Google Chrome");
    browserWindow(chrome, {"chrome://newtab/"});
    auto kept = browserWindow(chrome, {"chrome://newtab/", "https://a.example/"});
    auto real = browserWindow(chrome, {"https://b.example/"});
    Scripts::closeBlankBrowserWindows(AppKind::chromium, "com.google.Chrome");
    EXPECT_EQ(desktop.visibleWindows(chrome), (std::vector<std::uint64_t>{kept, real}));
    EXPECT_EQ(desktop.scriptRunsOf("closeBlank"), 1);
}

TEST_F(SimScriptsTest, RefusedAutomationFailsEveryScript) {
    auto spec = appSpec("com.apple.Safari", "/Applications/Safari.app", "Safari");
    spec.scripts = ScriptFault::refuse;
    desktop.startApp(spec);
    EXPECT_EQ(Scripts::captureSafari(), std::nullopt);
    EXPECT_FALSE(Scripts::restoreSafari(ScriptedWindow{std::nullopt, {"https://a.example/"}, 1}));
    EXPECT_EQ(desktop.now(), 0);
}

TEST_F(SimScriptsTest, AHungApplicationCostsTheWholeTimeOut) {
    auto spec = appSpec("com.apple.Safari", "/Applications/Safari.app", "Safari");
    spec.scripts = ScriptFault::hang;
    desktop.startApp(spec);
    EXPECT_EQ(Scripts::captureSafari(), std::nullopt);
    EXPECT_EQ(desktop.now(), 20);
    EXPECT_FALSE(Scripts::restoreSafari(ScriptedWindow{std::nullopt, {"https://a.example/"}, 1}));
    EXPECT_EQ(desktop.now(), 80);
}

TEST_F(SimScriptsTest, AScriptItDoesNotKnowFails) {
    start("com.apple.Safari", "Safari");
    EXPECT_EQ(runAppleScript("tell application id \"com.apple.Safari\"\nbeep\nend tell\n"), std::nullopt);
    EXPECT_EQ(runAppleScript("if application id \"com.apple.Safari\" is running then\nreturn 1\nend if"),
              std::nullopt);
}

}  // namespace
}  // namespace tarnwick::testing
