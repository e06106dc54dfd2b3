// Restore::appURL and Restore::ensureRunning on the simulated desktop.
#include "session/restore.h"

#include "support/log_watch.h"
#include "support/sim_desktop.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace tarnwick {
namespace {

using testing::appSpec;
using testing::LaunchFault;
using testing::ScopedPlatform;
using testing::SimAppSpec;
using testing::SimDesktop;

AppState recorded(std::optional<std::string> bundleID, std::string bundlePath, std::string name) {
    AppState app;
    app.name = std::move(name);
    app.bundleID = std::move(bundleID);
    app.bundlePath = std::move(bundlePath);
    return app;
}

class EnsureRunningTest : public ::testing::Test {
protected:
    SimDesktop desktop;
    ScopedPlatform installed{desktop};
    Restore::Result result;
    AppState editor = recorded("com.example.Editor", "/Applications/Editor.app", "Editor");

    testing::LogWatch log;
};

TEST_F(EnsureRunningTest, AppURLPrefersTheRecordedPathThenTheIdentifier) {
    desktop.install(appSpec("com.example.Editor", "/Applications/Editor.app", "Editor"));
    EXPECT_EQ(Restore::appURL(editor), "/Applications/Editor.app");
    AppState moved = recorded("com.example.Editor", "/Users/tester/Downloads/Editor.app", "Editor");
    EXPECT_EQ(Restore::appURL(moved), "/Applications/Editor.app");
    AppState unknown = recorded(std::nullopt, "/Users/tester/Downloads/Tool.app", "Tool");
    EXPECT_EQ(Restore::appURL(unknown), std::nullopt);
    AppState uninstalled = recorded("com.example.Gone", "/Applications/Gone.app", "Gone");
    EXPECT_EQ(Restore::appURL(uninstalled), std::nullopt);
}

TEST_F(EnsureRunningTest, RunningApplicationIsTakenAsItIsWithoutCounting) {
    auto pid = desktop.startApp(appSpec("com.example.Editor", "/Applications/Editor.app", "Editor"));
    auto running = Restore::ensureRunning(editor, result);
    ASSERT_TRUE(running.has_value());
    EXPECT_FALSE(running->launched);
    EXPECT_EQ(desktop.appInfo(running->app).pid, pid);
    EXPECT_EQ(result.launched, 0);
    EXPECT_EQ(desktop.calls("openApplication"), 0);
    EXPECT_EQ(desktop.now(), 0.0);
}

TEST_F(EnsureRunningTest, LaunchWaitsForTheAnswerThenPollsUntilFinishedLaunching) {
    SimAppSpec spec = appSpec("com.example.Editor", "/Applications/Editor.app", "Editor");
    spec.launchDelay = 0.5;
    spec.finishedAfter = 1.6;
    desktop.install(spec);
    auto running = Restore::ensureRunning(editor, result);
    ASSERT_TRUE(running.has_value());
    EXPECT_TRUE(running->launched);
    EXPECT_EQ(result.launched, 1);
    EXPECT_TRUE(result.problems.empty());
    // Answer at 0.5 s, then quarter-second polls until 1.6 s has passed.
    EXPECT_EQ(desktop.sleeps, (std::vector<double>{0.25, 0.25, 0.25, 0.25, 0.25}));
    EXPECT_DOUBLE_EQ(desktop.now(), 1.75);
    EXPECT_TRUE(desktop.appInfo(running->app).finishedLaunching);
}

TEST_F(EnsureRunningTest, SlowFinishIsNotAnErrorAfterTwentySeconds) {
    SimAppSpec spec = appSpec("com.example.Editor", "/Applications/Editor.app", "Editor");
    spec.finishedAfter = 300;
    desktop.install(spec);
    auto running = Restore::ensureRunning(editor, result);
    ASSERT_TRUE(running.has_value());
    EXPECT_EQ(desktop.sleeps.size(), 80u);
    EXPECT_DOUBLE_EQ(desktop.now(), 20.5);
    EXPECT_EQ(result.launched, 1);
    EXPECT_TRUE(result.problems.empty());
}

TEST_F(EnsureRunningTest, NoBundleGivesAppNotFound) {
    EXPECT_FALSE(Restore::ensureRunning(editor, result).has_value());
    EXPECT_EQ(result.problems, (std::vector<std::string>{"Editor: app not found"}));
    EXPECT_EQ(desktop.calls("openApplication"), 0);
}

TEST_F(EnsureRunningTest, HungLaunchGivesCouldNotLaunchAfterThirtySeconds) {
    SimAppSpec spec = appSpec("com.example.Editor", "/Applications/Editor.app", "Editor");
    spec.fault = LaunchFault::hang;
    desktop.install(spec);
    EXPECT_FALSE(Restore::ensureRunning(editor, result).has_value());
    EXPECT_EQ(result.problems, (std::vector<std::string>{"Editor: could not launch"}));
    EXPECT_EQ(result.launched, 0);
    EXPECT_DOUBLE_EQ(desktop.now(), 30.0);
}

TEST_F(EnsureRunningTest, RefusedLaunchIsLoggedWithTheBundleName) {
    SimAppSpec spec = appSpec("com.example.Editor", "/Applications/Editor.app", "Editor");
    spec.fault = LaunchFault::refuse;
    desktop.install(spec);
    EXPECT_FALSE(Restore::ensureRunning(editor, result).has_value());
    EXPECT_EQ(result.problems, (std::vector<std::string>{"Editor: could not launch"}));
    std::string lines = log.newText();
    EXPECT_NE(lines.find("Z launch Editor.app: The application \"Editor.app\" could not be launched.\n"),
              std::string::npos)
        << lines;
}

}  // namespace
}  // namespace tarnwick

namespace tarnwick {
namespace {

TEST_F(EnsureRunningTest, AProgramKnownByItsCommandLineIsStartedWithItInItsFolder) {
    desktop.install(appSpec(std::nullopt, "/usr/bin/xclock", "XClock"));
    AppState clock = recorded(std::nullopt, "/usr/bin/xclock", "XClock");
    clock.commandLine = std::vector<std::string>{"/usr/bin/xclock", "-digital"};
    clock.workingDirectory = "/home/tester/project";
    auto running = Restore::ensureRunning(clock, result);
    ASSERT_TRUE(running);
    EXPECT_TRUE(running->launched);
    EXPECT_EQ(desktop.calls("runningCommands"), 1) << "looked for before it is started";
    EXPECT_NE(std::find(desktop.journal.begin(), desktop.journal.end(),
                        "launch:/usr/bin/xclock /usr/bin/xclock -digital in /home/tester/project"),
              desktop.journal.end());
}

TEST_F(EnsureRunningTest, OnAMacRecordsOfOneApplicationShareItsInstanceAndNothingIsStartedByCommandLine) {
    auto pid = desktop.startApp(appSpec("com.example.Editor", "/Applications/Editor.app", "Editor"));
    std::vector<std::int32_t> taken;
    auto first = Restore::ensureRunning(editor, result, taken);
    auto second = Restore::ensureRunning(editor, result, taken);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(desktop.appInfo(first->app).pid, pid);
    EXPECT_EQ(desktop.appInfo(second->app).pid, pid);
    EXPECT_EQ(result.launched, 0);
    EXPECT_EQ(desktop.calls("launch"), 0);
    EXPECT_EQ(desktop.calls("runningCommands"), 0);
}

TEST_F(EnsureRunningTest, WhereInstancesAreSeparateEachRecordGetsOneOfItsOwn) {
    desktop.windowManager = "openbox";
    desktop.install(appSpec("com.example.Editor", "/Applications/Editor.app", "Editor"));
    auto pid = desktop.startApp(appSpec("com.example.Editor", "/Applications/Editor.app", "Editor"));
    std::vector<std::int32_t> taken;
    auto first = Restore::ensureRunning(editor, result, taken);
    auto second = Restore::ensureRunning(editor, result, taken);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(desktop.appInfo(first->app).pid, pid);
    EXPECT_FALSE(first->launched);
    EXPECT_NE(desktop.appInfo(second->app).pid, pid);
    EXPECT_TRUE(second->launched);
    EXPECT_EQ(result.launched, 1);
}

TEST_F(EnsureRunningTest, AProgramThatHandsOverAndEndsIsNotWaitedFor) {
    desktop.windowManager = "openbox";
    SimAppSpec spec = appSpec("com.example.Editor", "/Applications/Editor.app", "Editor");
    spec.fault = LaunchFault::handsOver;
    desktop.install(spec);
    auto running = Restore::ensureRunning(editor, result);
    ASSERT_TRUE(running);
    EXPECT_TRUE(running->launched);
    EXPECT_FALSE(desktop.appInfo(running->app).terminated) << "the instance it handed over to";
    EXPECT_LT(desktop.now(), 5.0) << "not the 20 seconds of a launch that never finishes";
    EXPECT_TRUE(result.problems.empty());
}

TEST_F(EnsureRunningTest, AProgramThatEndsWithNoOneToHandOverToIsAProblem) {
    desktop.windowManager = "openbox";
    SimAppSpec spec = appSpec(std::nullopt, "/usr/bin/xmessage", "XMessage");
    spec.fault = LaunchFault::handsOver;
    desktop.install(spec);
    AppState message = recorded(std::nullopt, "/usr/bin/xmessage", "XMessage");
    message.commandLine = std::vector<std::string>{"/usr/bin/xmessage", "hello"};
    EXPECT_FALSE(Restore::ensureRunning(message, result));
    EXPECT_EQ(result.problems, (std::vector<std::string>{"XMessage: started, but ended before it showed a window"}));
    EXPECT_EQ(result.launched, 1);
    EXPECT_LT(desktop.now(), 5.0);
}

}  // namespace
}  // namespace tarnwick

namespace tarnwick {
namespace {

// Where nothing checks a program before it runs (X11), what a snapshot says
// to run is run only when the snapshot is this user's own.
class UntrustedLaunchTest : public EnsureRunningTest {
protected:
    void SetUp() override {
        desktop.windowManager = "Openbox";
        desktop.install(appSpec("xlogo.desktop", "/usr/share/applications/xlogo.desktop", "Logo"));
        desktop.install(appSpec(std::nullopt, "/tmp/evil", "Tool"));
        desktop.install(appSpec(std::nullopt, "/tmp/evil.desktop", "Entry"));
    }

    std::optional<Restore::Running> ensure(const AppState& app, bool trusted) {
        std::vector<std::int32_t> taken;
        return Restore::ensureRunning(app, result, taken, trusted);
    }

    bool launchedAnything() const { return desktop.calls("openApplication") + desktop.calls("launch") > 0; }
};

// What the desktop was asked to start, in order.
std::vector<std::string> starts(const SimDesktop& desktop) {
    std::vector<std::string> found;
    for (const std::string& entry : desktop.journal)
        if (entry.rfind("openApplication:", 0) == 0 || entry.rfind("launch:", 0) == 0) found.push_back(entry);
    return found;
}

TEST_F(UntrustedLaunchTest, ACommandLineIsNotStarted) {
    AppState app = recorded(std::nullopt, "/bin/sh", "Clock");
    app.commandLine = std::vector<std::string>{"/bin/sh", "-c", "touch it's"};
    EXPECT_FALSE(ensure(app, false));
    EXPECT_FALSE(launchedAnything());
    EXPECT_EQ(result.problems,
              (std::vector<std::string>{"Clock: not started: the command line /bin/sh -c 'touch it'\\''s' comes "
                                        "from a snapshot that Tarnwick did not save here (trust the snapshot to "
                                        "allow it)"}));
    EXPECT_EQ(result.launched, 0);
}

TEST_F(UntrustedLaunchTest, AnExecutableFileIsNotStarted) {
    EXPECT_FALSE(ensure(recorded(std::nullopt, "/tmp/evil", "Tool"), false));
    EXPECT_FALSE(launchedAnything());
    EXPECT_EQ(result.problems, (std::vector<std::string>{"Tool: not started: the program /tmp/evil comes from a "
                                                         "snapshot that Tarnwick did not save here (trust the "
                                                         "snapshot to allow it)"}));
}

TEST_F(UntrustedLaunchTest, ADesktopEntryNamedByPathIsNeverStartedEvenFromATrustedSnapshot) {
    for (bool trusted : {false, true}) {
        result = {};
        EXPECT_FALSE(ensure(recorded(std::nullopt, "/tmp/evil.desktop", "Entry"), trusted));
        EXPECT_EQ(result.problems, (std::vector<std::string>{"Entry: app not found"}));
    }
    EXPECT_FALSE(launchedAnything());
}

TEST_F(UntrustedLaunchTest, AnInstalledEntryIsFoundByItsIdentifierNotByTheRecordedPath) {
    auto running = ensure(recorded("xlogo.desktop", "/tmp/evil.desktop", "Logo"), false);
    ASSERT_TRUE(running);
    EXPECT_TRUE(running->launched);
    EXPECT_TRUE(result.problems.empty()) << result.problems.front();
    EXPECT_EQ(starts(desktop), (std::vector<std::string>{"openApplication:/usr/share/applications/xlogo.desktop"}));
}

TEST_F(UntrustedLaunchTest, AnEntryWithARecordedCommandLineIsNotStartedWhenUntrusted) {
    AppState app = recorded("xlogo.desktop", "/usr/share/applications/xlogo.desktop", "Logo");
    app.commandLine = std::vector<std::string>{"/bin/sh", "-c", "true"};
    EXPECT_FALSE(ensure(app, false));
    EXPECT_FALSE(launchedAnything());
    ASSERT_EQ(result.problems.size(), 1u);
    EXPECT_EQ(result.problems[0].rfind("Logo: not started: the command line", 0), 0u) << result.problems[0];
}

TEST_F(UntrustedLaunchTest, AnInstalledProgramStartsInTheHomeFolderNotInTheFoldersOfAnUntrustedSnapshot) {
    AppState terminal = recorded("xlogo.desktop", "/usr/share/applications/xlogo.desktop", "Terminal");
    terminal.workingDirectory = "/tmp/downloaded";
    auto first = ensure(terminal, false);
    ASSERT_TRUE(first);
    EXPECT_EQ(starts(desktop), (std::vector<std::string>{"openApplication:/usr/share/applications/xlogo.desktop"}));
    EXPECT_EQ(result.problems, (std::vector<std::string>{"Terminal: started in the home folder, not in /tmp/downloaded, "
                                                         "which comes from a snapshot that Tarnwick did not save "
                                                         "here (trust the snapshot to allow it)"}));
    result = {};
    desktop.quit(desktop.appInfo(first->app).pid);
    ASSERT_TRUE(ensure(terminal, true));
    auto all = starts(desktop);
    EXPECT_NE(std::find(all.begin(), all.end(), "launch:/usr/share/applications/xlogo.desktop in /tmp/downloaded"),
              all.end());
    EXPECT_TRUE(result.problems.empty());
}

TEST_F(UntrustedLaunchTest, ATrustedSnapshotStartsItsCommandLineAndProgram) {
    AppState app = recorded(std::nullopt, "/tmp/evil", "Tool");
    app.commandLine = std::vector<std::string>{"/tmp/evil", "-digital"};
    ASSERT_TRUE(ensure(app, true));
    ASSERT_TRUE(ensure(recorded(std::nullopt, "/tmp/evil", "Tool"), true));
    EXPECT_TRUE(result.problems.empty());
    EXPECT_EQ(starts(desktop),
              (std::vector<std::string>{"launch:/tmp/evil /tmp/evil -digital", "openApplication:/tmp/evil",
                                        "openApplication:/tmp/evil"}));
}

TEST_F(UntrustedLaunchTest, WhatNeedsTrustIsListedBeforeARestore) {
    Snapshot snapshot;
    AppState clock = recorded(std::nullopt, "/usr/bin/xclock", "Clock");
    clock.commandLine = std::vector<std::string>{"/usr/bin/xclock", "-digital"};
    AppState terminal = recorded("xlogo.desktop", "/usr/share/applications/xlogo.desktop", "Terminal");
    terminal.workingDirectory = "/tmp/downloaded repo";
    snapshot.apps = {clock, recorded(std::nullopt, "/tmp/evil", "Tool"),
                     recorded("xlogo.desktop", "/tmp/evil.desktop", "Logo"),
                     recorded(std::nullopt, "/tmp/evil.desktop", "Entry"), terminal};
    snapshot.trusted = false;
    EXPECT_EQ(Restore::startsNeedingTrust(snapshot),
              (std::vector<std::string>{"Clock: the command line /usr/bin/xclock -digital",
                                        "Tool: the program /tmp/evil", "Terminal: the folder '/tmp/downloaded repo'"}));
    snapshot.trusted = true;
    EXPECT_TRUE(Restore::startsNeedingTrust(snapshot).empty());
    snapshot.trusted = false;
    desktop.windowManager.reset();
    EXPECT_TRUE(Restore::startsNeedingTrust(snapshot).empty()) << "a Mac checks what it opens";
    EXPECT_FALSE(launchedAnything());
}

TEST_F(EnsureRunningTest, OnAMacAnUntrustedSnapshotStillOpensTheRecordedBundle) {
    desktop.install(appSpec("com.example.Editor", "/Applications/Editor.app", "Editor"));
    std::vector<std::int32_t> taken;
    ASSERT_TRUE(Restore::ensureRunning(editor, result, taken, false));
    EXPECT_EQ(starts(desktop), (std::vector<std::string>{"openApplication:/Applications/Editor.app"}));
}

}  // namespace
}  // namespace tarnwick
