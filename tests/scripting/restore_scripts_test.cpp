// Restore scripts: exact texts, the nothing-to-do cases and the answers of the runs.
#include "expected_scripts.h"
#include "support/fake_tools.h"

#include "scripting/restore_scripts.h"
#include "platform/platform.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

namespace tarnwick::testing {
namespace {

const Frame kFrame{10, 20, 300, 400};  // "{10, 20, 310, 420}"

TEST(RestoreScripts, ChromiumOpensNonEmptyUrlsAndKeepsTheSavedIndex) {
    ScriptedWindow window{kFrame, {"file:///tmp/a.html", "", "file:///tmp/b.html"}, 3};
    EXPECT_EQ(Scripts::restoreChromiumScript("com.google.Chrome", window), kRestoreChromium);
}

TEST(RestoreScripts, SafariExample) {
    ScriptedWindow window{kFrame, {"file:///tmp/a.html", "", "file:///tmp/b.html"}, 2};
    EXPECT_EQ(Scripts::restoreSafariScript(window), kRestoreSafari);
}

TEST(RestoreScripts, FinderExample) {
    EXPECT_EQ(Scripts::restoreFinderScript({kFrame, {"/tmp/work/", "/ignored/"}, 1}), kRestoreFinder);
}

TEST(RestoreScripts, TerminalInTheFrontWindowOrANewOne) {
    EXPECT_EQ(Scripts::restoreTerminalScript({kFrame, {"/tmp/it's here"}, 1}, true), kRestoreTerminalReuse);
    EXPECT_EQ(Scripts::restoreTerminalScript({std::nullopt, {"/tmp/it's here"}, 1}, false), kRestoreTerminalNew);
}

TEST(RestoreScripts, ITermExample) {
    EXPECT_EQ(Scripts::restoreITermScript({kFrame, {"/tmp/a", "/tmp/b"}, 2}, "/Users/someone"), kRestoreITerm);
}

TEST(RestoreScripts, ITermWithThreeDirectoriesMakesTwoMoreTabsInOrder) {
    std::string script = Scripts::restoreITermScript({std::nullopt, {"/a", "/b", "/c"}, 1}, "/home");
    EXPECT_EQ(script,
              "tell application id \"com.googlecode.iterm2\"\n"
              "set w to (create window with default profile)\n"
              "tell current session of w to write text \"cd '/a' && clear\"\n"
              "tell w\nset t to (create tab with default profile)\nend tell\n"
              "tell current session of t to write text \"cd '/b' && clear\"\n"
              "tell w\nset t to (create tab with default profile)\nend tell\n"
              "tell current session of t to write text \"cd '/c' && clear\"\n"
              "end tell\n");
}

TEST(RestoreScripts, ITermWithoutItemsOpensInTheHomeFolder) {
    EXPECT_EQ(Scripts::restoreITermScript({std::nullopt, {}, 1}, "/Users/some one"),
              "tell application id \"com.googlecode.iterm2\"\n"
              "set w to (create window with default profile)\n"
              "tell current session of w to write text \"cd '/Users/some one' && clear\"\n"
              "end tell\n");
}

TEST(RestoreScripts, NoFrameMeansNoBoundsBlock) {
    ScriptedWindow window{std::nullopt, {"https://a.example/"}, 1};
    for (const std::string& script :
         {*Scripts::restoreChromiumScript("com.vivaldi.Vivaldi", window), *Scripts::restoreSafariScript(window),
          *Scripts::restoreFinderScript(window), *Scripts::restoreTerminalScript(window, true),
          Scripts::restoreITermScript(window, "/")})
        EXPECT_EQ(script.find("bounds"), std::string::npos) << script;
}

TEST(RestoreScripts, QuotesAndBackslashesInUrlsAreEmbeddedQuoted) {
    ScriptedWindow window{std::nullopt, {"https://a.example/?q=\"x\"", "https://b.example/\\\"end"}, 1};
    std::string script = *Scripts::restoreChromiumScript("com.google.Chrome", window);
    EXPECT_NE(script.find("set URL of active tab of w to \"https://a.example/?q=\\\"x\\\"\"\n"), std::string::npos);
    EXPECT_NE(script.find("{URL:\"https://b.example/\\\\\\\"end\"}\n"), std::string::npos) << script;
}

TEST(RestoreScripts, NothingToDoRunsNoScript) {
    EXPECT_EQ(Scripts::restoreChromiumScript("com.google.Chrome", {kFrame, {"", ""}, 1}), std::nullopt);
    EXPECT_EQ(Scripts::restoreSafariScript({kFrame, {""}, 1}), std::nullopt);
    EXPECT_EQ(Scripts::restoreFinderScript({kFrame, {}, 1}), std::nullopt);
    EXPECT_EQ(Scripts::restoreTerminalScript({kFrame, {}, 1}, false), std::nullopt);
    // An empty first item is still a Finder target.
    EXPECT_NE(Scripts::restoreFinderScript({std::nullopt, {""}, 1}), std::nullopt);
}

TEST(CloseBlankBrowserWindows, ChromeScriptIsExact) {
    EXPECT_EQ(Scripts::closeBlankBrowserWindowsScript(AppKind::chromium, "com.google.Chrome"), kCloseBlankChrome);
}

TEST(CloseBlankBrowserWindows, SafariAsksForTheCurrentTab) {
    std::string expected = kCloseBlankChrome;
    expected.replace(expected.find("\"com.google.Chrome\""), 19, "\"com.apple.Safari\"");
    expected.replace(expected.find("URL of active tab of w"), 22, "URL of current tab of w");
    EXPECT_EQ(Scripts::closeBlankBrowserWindowsScript(AppKind::safari, "com.apple.Safari"), expected);
}

TEST(CloseBlankBrowserWindows, BlankRule) {
    // The rule as the script states it: newtab anywhere, about:blank exactly.
    std::string script = Scripts::closeBlankBrowserWindowsScript(AppKind::chromium, "com.google.Chrome");
    EXPECT_NE(script.find("if (count of tabs of w) is 1 then"), std::string::npos);
    EXPECT_NE(script.find("u contains \"://newtab\""), std::string::npos);
    EXPECT_NE(script.find("u is \"about:blank\""), std::string::npos);
    EXPECT_EQ(script.find("starts with \"about:blank\""), std::string::npos);
}

class RestoreRunTest : public ::testing::Test {
protected:
    void SetUp() override { setenv("TARNWICK_FAKE_RECEIVED", (dir_.path() / "received").c_str(), 1); }
    void TearDown() override { unsetenv("TARNWICK_FAKE_RECEIVED"); }
    std::optional<std::string> received() {
        if (!std::filesystem::exists(dir_.path() / "received")) return std::nullopt;
        std::string text = readText(dir_.path() / "received");
        std::filesystem::remove(dir_.path() / "received");
        return text;
    }
    TempDir dir_;
};

TEST_F(RestoreRunTest, SuccessfulRunsSendTheirScript) {
    UsingTools tools("osascript_replay");
    ScriptedWindow window{kFrame, {"/tmp/a"}, 1};
    const std::string prologue = "set tb to character id 9\n";
    EXPECT_TRUE(Scripts::restoreChromium("com.google.Chrome", window));
    EXPECT_EQ(received(), prologue + *Scripts::restoreChromiumScript("com.google.Chrome", window));
    EXPECT_TRUE(Scripts::restoreSafari(window));
    EXPECT_EQ(received(), prologue + *Scripts::restoreSafariScript(window));
    EXPECT_TRUE(Scripts::restoreFinder(window));
    EXPECT_EQ(received(), prologue + *Scripts::restoreFinderScript(window));
    EXPECT_TRUE(Scripts::restoreTerminal(window, false));
    EXPECT_EQ(received(), prologue + *Scripts::restoreTerminalScript(window, false));
    EXPECT_TRUE(Scripts::restoreITerm({kFrame, {}, 1}));
    EXPECT_EQ(received(), prologue + Scripts::restoreITermScript({kFrame, {}, 1}, platform().homeDirectory()));
    Scripts::closeBlankBrowserWindows(AppKind::safari, "com.apple.Safari");
    EXPECT_EQ(received(), prologue + Scripts::closeBlankBrowserWindowsScript(AppKind::safari, "com.apple.Safari"));
}

TEST_F(RestoreRunTest, NothingToDoIsASuccessWithoutARun) {
    UsingTools tools("osascript_fail");
    EXPECT_TRUE(Scripts::restoreChromium("com.google.Chrome", {kFrame, {""}, 1}));
    EXPECT_TRUE(Scripts::restoreSafari({kFrame, {}, 1}));
    EXPECT_TRUE(Scripts::restoreFinder({kFrame, {}, 1}));
    EXPECT_TRUE(Scripts::restoreTerminal({kFrame, {}, 1}, true));
}

TEST_F(RestoreRunTest, FailedRunsAnswerFalse) {
    UsingTools tools("osascript_fail");
    ScriptedWindow window{kFrame, {"/tmp/a"}, 1};
    EXPECT_FALSE(Scripts::restoreChromium("com.google.Chrome", window));
    EXPECT_FALSE(Scripts::restoreSafari(window));
    EXPECT_FALSE(Scripts::restoreFinder(window));
    EXPECT_FALSE(Scripts::restoreTerminal(window, true));
    EXPECT_FALSE(Scripts::restoreITerm(window));
    Scripts::closeBlankBrowserWindows(AppKind::chromium, "com.google.Chrome");
}

}  // namespace
}  // namespace tarnwick::testing
