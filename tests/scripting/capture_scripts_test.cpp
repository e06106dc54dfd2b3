// Capture scripts: exact texts, listings replayed by a fake interpreter, terminal directories.
#include "expected_scripts.h"
#include "support/fake_tools.h"

#include "scripting/capture_scripts.h"
#include "scripting/quoting.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace tarnwick::testing {
namespace {

TEST(CaptureScripts, TextsAreExact) {
    EXPECT_EQ(Scripts::captureChromiumScript("com.google.Chrome"), kCaptureChromium);
    EXPECT_EQ(Scripts::captureSafariScript(), kCaptureSafari);
    EXPECT_EQ(Scripts::captureFinderScript(), kCaptureFinder);
    EXPECT_EQ(Scripts::captureTerminalScript(), kCaptureTerminal);
    EXPECT_EQ(Scripts::captureITermScript(), kCaptureITerm);
}

TEST(CaptureScripts, BundleIdentifierIsEmbeddedQuoted) {
    std::string id = "com.example\" is running then\ndo shell script \"rm -rf ~\\";
    std::string script = Scripts::captureChromiumScript(id);
    std::string expected = kCaptureChromium;
    for (size_t at; (at = expected.find("\"com.google.Chrome\"")) != std::string::npos;)
        expected.replace(at, 19, asq(id));
    EXPECT_EQ(script, expected);
    EXPECT_EQ(script.find("\ndo shell script \"rm"), std::string::npos);
}

TEST(CaptureScripts, TerminalFinderAndITermAlwaysReportIndexOne) {
    for (const std::string& script :
         {Scripts::captureFinderScript(), Scripts::captureTerminalScript(), Scripts::captureITermScript()}) {
        EXPECT_NE(script.find("try\n    set ai to 1\nend try\n"), std::string::npos);
        EXPECT_EQ(script.find("tab index"), std::string::npos);
        EXPECT_EQ(script.find("current tab"), std::string::npos);
    }
}

TEST(ShellPidFromPs, LeadingSpacesAndLoginShell) { EXPECT_EQ(Scripts::shellPidFromPs("  512 -zsh\n"), "512"); }

TEST(ShellPidFromPs, FullPathCounts) { EXPECT_EQ(Scripts::shellPidFromPs("77 /bin/bash\n"), "77"); }

TEST(ShellPidFromPs, OtherProgramsDoNot) {
    EXPECT_EQ(Scripts::shellPidFromPs("  90 vim\n"), std::nullopt);
    EXPECT_EQ(Scripts::shellPidFromPs("  91 zshx\n 92 Bash\n93\n\n"), std::nullopt);
    EXPECT_EQ(Scripts::shellPidFromPs(""), std::nullopt);
}

TEST(ShellPidFromPs, FirstShellListedWins) {
    EXPECT_EQ(Scripts::shellPidFromPs("  512 -zsh\n  640 vim\n  700 bash\n"), "512");
    EXPECT_EQ(Scripts::shellPidFromPs("  640 vim\n  700 /usr/local/bin/fish\n  512 -zsh\n"), "700");
    for (const char* shell : {"zsh", "bash", "fish", "sh", "nu", "tcsh", "-sh", "--bash-", "/opt/bin/nu"})
        EXPECT_EQ(Scripts::shellPidFromPs(std::string("1 ") + shell), "1") << shell;
}

TEST(CwdFromLsof, FirstNameLineWithoutItsFirstCharacter) {
    EXPECT_EQ(Scripts::cwdFromLsof("p512\nfcwd\nn/Users/someone/My Work\n"), "/Users/someone/My Work");
    EXPECT_EQ(Scripts::cwdFromLsof("p512\nfcwd\nnn/odd\nn/second\n"), "n/odd");
    EXPECT_EQ(Scripts::cwdFromLsof("p512\nn\n"), "");
}

TEST(CwdFromLsof, NoNameLineGivesNothing) {
    EXPECT_EQ(Scripts::cwdFromLsof("p512\nfcwd\n"), std::nullopt);
    EXPECT_EQ(Scripts::cwdFromLsof(""), std::nullopt);
}

// Replays a listing through the fake interpreter and keeps what it was sent.
class CaptureTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("TARNWICK_FAKE_RECEIVED", (dir_.path() / "received").c_str(), 1);
        setenv("TARNWICK_FAKE_TOOLS", dir_.path().c_str(), 1);
    }
    void TearDown() override {
        unsetenv("TARNWICK_FAKE_RECEIVED");
        unsetenv("TARNWICK_FAKE_LISTING");
        unsetenv("TARNWICK_FAKE_TOOLS");
    }
    void answer(const std::string& listing) {
        writeText(dir_.path() / "listing", listing);
        setenv("TARNWICK_FAKE_LISTING", (dir_.path() / "listing").c_str(), 1);
    }
    std::string received() { return readText(dir_.path() / "received"); }
    std::string calls() { return readText(dir_.path() / "calls"); }
    void tool(const std::string& name, const std::string& output) { writeText(dir_.path() / name, output); }

    TempDir dir_;
    UsingTools tools_{"osascript_replay"};
};

TEST_F(CaptureTest, BrowserThatIsNotRunningGivesAnEmptyList) {
    auto windows = Scripts::captureChromium("com.brave.Browser");
    ASSERT_TRUE(windows.has_value());
    EXPECT_TRUE(windows->empty());
    EXPECT_EQ(received(), "set tb to character id 9\n" + Scripts::captureChromiumScript("com.brave.Browser"));
}

TEST_F(CaptureTest, ChromiumListing) {
    // As the script prints it: the incognito window is not listed at all, a tab
    // without a URL gives an empty item, and the interpreter adds a line feed.
    answer("W\t0;25;1280;800\t2\nT\thttps://a.example/\nT\t\nT\thttps://b.example/\nW\t10;10;600;400\t1\nT\t\n\n");
    auto windows = Scripts::captureChromium("com.google.Chrome");
    ASSERT_TRUE(windows.has_value());
    EXPECT_EQ(*windows, (std::vector<ScriptedWindow>{
                            {Frame{0, 25, 1280, 775}, {"https://a.example/", "https://b.example/"}, 2}}));
}

TEST_F(CaptureTest, EachKindSendsItsOwnScript) {
    answer("W\t0;0;10;10\t1\nT\t/Users/someone/\n");
    EXPECT_EQ(Scripts::captureFinder()->front().items, TextList{"/Users/someone/"});
    EXPECT_EQ(received(), "set tb to character id 9\n" + Scripts::captureFinderScript());
    EXPECT_EQ(Scripts::captureSafari()->size(), 1u);
    EXPECT_EQ(received(), "set tb to character id 9\n" + Scripts::captureSafariScript());
    EXPECT_EQ(Scripts::captureITerm()->size(), 1u);
    EXPECT_EQ(received(), "set tb to character id 9\n" + Scripts::captureITermScript());
}

TEST_F(CaptureTest, FailedRunGivesNothing) {
    UsingTools failing("osascript_fail");
    EXPECT_EQ(Scripts::captureSafari(), std::nullopt);
    EXPECT_EQ(Scripts::captureTerminal(), std::nullopt);
}

TEST_F(CaptureTest, TerminalWindowsBecomeTheirShellsDirectories) {
    answer("W\t0;25;700;500\t1\nT\t/dev/ttys003\nW\t\t1\nT\t/dev/ttys004\nW\t5;5;50;50\t1\nT\t/dev/ttys005\n");
    tool("ps-ttys003", "  512 -zsh\n  640 vim\n");
    tool("lsof-512", "p512\nfcwd\nn/Users/someone/it's here\n");
    tool("ps-ttys004", "  700 top\n");  // no shell: the window is dropped
    tool("ps-ttys005", "  800 /bin/bash\n");
    tool("lsof-800", "p800\nfcwd\n");  // no directory: dropped too
    auto windows = Scripts::captureTerminal();
    ASSERT_TRUE(windows.has_value());
    EXPECT_EQ(*windows,
              (std::vector<ScriptedWindow>{{Frame{0, 25, 700, 475}, {"/Users/someone/it's here"}, 1}}));
    EXPECT_EQ(calls(),
              "ps [-t] [ttys003] [-o] [pid=,comm=]\n"
              "lsof [-a] [-p] [512] [-d] [cwd] [-Fn]\n"
              "ps [-t] [ttys004] [-o] [pid=,comm=]\n"
              "ps [-t] [ttys005] [-o] [pid=,comm=]\n"
              "lsof [-a] [-p] [800] [-d] [cwd] [-Fn]\n");
}

TEST_F(CaptureTest, CwdOfTTYRemovesEveryDevPrefix) {
    tool("ps-ttys009", "1 sh\n");
    tool("lsof-1", "n/tmp\n");
    EXPECT_EQ(Scripts::cwdOfTTY("/dev//dev/ttys009"), "/tmp");
    EXPECT_EQ(Scripts::cwdOfTTY("/de/dev/v/ttys009"), std::nullopt);
    EXPECT_EQ(calls(),
              "ps [-t] [ttys009] [-o] [pid=,comm=]\nlsof [-a] [-p] [1] [-d] [cwd] [-Fn]\n"
              "ps [-t] [/dev/ttys009] [-o] [pid=,comm=]\n");
}

TEST_F(CaptureTest, MissingToolsDropTheWindowSilently) {
    UsingTools missing("osascript_replay", "/nonexistent/ps", "/nonexistent/lsof");
    answer("W\t\t1\nT\t/dev/ttys003\n");
    EXPECT_EQ(Scripts::captureTerminal(), std::vector<ScriptedWindow>{});
}

}  // namespace
}  // namespace tarnwick::testing
