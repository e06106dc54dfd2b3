// Restore::run on the simulated desktop, with its scripts answered by the simulator.
#include "session/restore.h"

#include "support/sim_desktop.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace tarnwick {
namespace {

using testing::appSpec;
using testing::LaunchFault;
using testing::ScopedPlatform;
using testing::ScopedScripts;
using testing::ScriptFault;
using testing::SimAppSpec;
using testing::SimDesktop;
using testing::SimWindow;

const std::string chromeID = "com.google.Chrome";
const std::string terminalID = "com.apple.Terminal";

AppState recorded(AppKind kind, std::optional<std::string> bundleID, std::string bundlePath, std::string name) {
    AppState app;
    app.kind = kind;
    app.name = std::move(name);
    app.bundleID = std::move(bundleID);
    app.bundlePath = std::move(bundlePath);
    return app;
}

ScriptedWindow scripted(std::vector<std::string> items, std::optional<Frame> frame = std::nullopt) {
    return ScriptedWindow{frame, TextList(items), 1};
}

class RestoreRunTest : public ::testing::Test {
protected:
    SimDesktop desktop;
    ScopedPlatform installed{desktop};
    ScopedScripts scripts{desktop};
    Snapshot snapshot;
    std::vector<std::string> progressLines;

    SimAppSpec editorSpec = appSpec("com.example.Editor", "/Applications/Editor.app", "Editor");
    SimAppSpec chromeSpec = appSpec(chromeID, "/Applications/Google Chrome.app", "Google Chrome");
    SimAppSpec safariSpec = appSpec("com.apple.Safari", "/Applications/Safari.app", "Safari");
    SimAppSpec finderSpec = appSpec("com.apple.finder", "/System/Library/CoreServices/Finder.app", "Finder");
    SimAppSpec terminalSpec = appSpec(terminalID, "/System/Applications/Utilities/Terminal.app", "Terminal");
    SimAppSpec itermSpec = appSpec("com.googlecode.iterm2", "/Applications/iTerm.app", "iTerm");

    void SetUp() override {
        // Launched fresh, Terminal shows one window at home, Chrome one blank window.
        SimWindow home;
        home.tty = "/dev/ttys000";
        home.shellDirectory = desktop.home;
        terminalSpec.windowsOnLaunch = {home};
        SimWindow blank;
        blank.tabs = {"chrome://newtab/"};
        chromeSpec.windowsOnLaunch = {blank};
        SimWindow editorWindow;
        editorWindow.title = "Untitled";
        editorSpec.windowsOnLaunch = {editorWindow};
    }

    AppState recordedFor(const SimAppSpec& spec, AppKind kind) {
        return recorded(kind, spec.bundleID, spec.bundlePath, spec.name.value_or(""));
    }

    Restore::Result run() {
        return Restore::run(snapshot, [this](const std::string& text) {
            progressLines.push_back(text);
            desktop.journal.push_back("progress:" + text);
        });
    }

    std::uint64_t browserWindow(std::int32_t pid, std::vector<std::string> tabs) {
        SimWindow made;
        made.tabs = std::move(tabs);
        return desktop.addWindow(pid, made);
    }

    // Where in the journal the first entry starting with `prefix` stands.
    std::ptrdiff_t at(const std::string& prefix) const {
        auto found = std::find_if(desktop.journal.begin(), desktop.journal.end(),
                                  [&](const std::string& entry) { return entry.starts_with(prefix); });
        return found == desktop.journal.end() ? -1 : found - desktop.journal.begin();
    }
};

TEST_F(RestoreRunTest, SnapshotHoldingTheSystemItselfNeverRelaunchesIt) {
    SimAppSpec own = appSpec("com.tarnwick.Tarnwick", "/Applications/Tarnwick.app", "Tarnwick");
    desktop.install(own);
    desktop.install(editorSpec);
    snapshot.apps = {recordedFor(own, AppKind::generic), recordedFor(editorSpec, AppKind::generic)};

    Restore::Result result = run();

    EXPECT_EQ(progressLines, std::vector<std::string>{"Restoring 1/1: Editor"});
    EXPECT_EQ(desktop.calls("openApplication"), 1);
    EXPECT_FALSE(desktop.pidOf("com.tarnwick.Tarnwick"));
    EXPECT_EQ(result.launched, 1);
}

TEST_F(RestoreRunTest, WithoutAnOwnIdentifierAnAppWithoutOneIsTakenForTheSystem) {
    desktop.ownBundleID.reset();
    SimAppSpec anonymous = appSpec(std::nullopt, "/Applications/Anonymous.app", "Anonymous");
    desktop.install(anonymous);
    desktop.install(editorSpec);
    snapshot.apps = {recordedFor(anonymous, AppKind::generic), recordedFor(editorSpec, AppKind::generic)};
    run();
    EXPECT_EQ(progressLines, std::vector<std::string>{"Restoring 1/1: Editor"});
}

TEST_F(RestoreRunTest, HiddenAppIsHiddenAgainAfterItsWindowsAlsoWhenAlreadyRunning) {
    desktop.install(editorSpec);
    SimAppSpec mail = appSpec("com.example.Mail", "/Applications/Mail.app", "Mail");
    desktop.install(mail);
    auto mailPid = desktop.startApp(mail);
    SimWindow inbox;
    inbox.title = "Inbox";
    desktop.addWindow(mailPid, inbox);
    AppState editor = recordedFor(editorSpec, AppKind::generic);
    editor.hidden = true;
    editor.windows = {WindowState{"Untitled", std::nullopt, Frame{10, 30, 500, 400}, false, false}};
    AppState mailApp = recordedFor(mail, AppKind::generic);
    mailApp.hidden = true;
    mailApp.windows = {WindowState{"Inbox", std::nullopt, Frame{20, 40, 500, 400}, false, false}};
    snapshot.apps = {editor, mailApp};

    Restore::Result result = run();

    auto editorPid = *desktop.pidOf("com.example.Editor");
    EXPECT_TRUE(desktop.app(editorPid).hidden);
    EXPECT_TRUE(desktop.app(mailPid).hidden);
    EXPECT_EQ(result.windows, 2);
    // Each hide comes after that app's frame was written.
    auto editorWindow = std::to_string(desktop.visibleWindows(editorPid)[0]);
    auto mailWindow = std::to_string(desktop.visibleWindows(mailPid)[0]);
    EXPECT_LT(at("setAttribute:AXSize:" + editorWindow), at("hide:" + std::to_string(editorPid)));
    EXPECT_LT(at("hide:" + std::to_string(editorPid)), at("progress:Restoring 2/2: Mail"));
    EXPECT_LT(at("setAttribute:AXSize:" + mailWindow), at("hide:" + std::to_string(mailPid)));
}

TEST_F(RestoreRunTest, WithNoFrontmostRecordedNothingIsActivated) {
    desktop.startApp(editorSpec);
    snapshot.apps = {recordedFor(editorSpec, AppKind::generic)};
    run();
    EXPECT_EQ(desktop.calls("activate"), 0);
}

TEST_F(RestoreRunTest, TheRecordedFrontmostIsActivatedLast) {
    desktop.startApp(editorSpec);
    auto mailPid = desktop.startApp(appSpec("com.example.Mail", "/Applications/Mail.app", "Mail"));
    snapshot.apps = {recordedFor(editorSpec, AppKind::generic)};
    snapshot.frontmost = "com.example.Mail";
    run();
    EXPECT_EQ(desktop.activations, std::vector<std::int32_t>{mailPid});
    EXPECT_EQ(desktop.journal.back(), "activate:" + std::to_string(mailPid));
}

TEST_F(RestoreRunTest, AFrontmostThatIsNotRunningIsLeftAlone) {
    desktop.startApp(editorSpec);
    snapshot.apps = {recordedFor(editorSpec, AppKind::generic)};
    snapshot.frontmost = "com.example.NotRunning";
    run();
    EXPECT_EQ(desktop.calls("activate"), 0);
}

TEST_F(RestoreRunTest, ChromiumWindowWithHalfItsTabsOpenIsNotReopenedWithFewerItIs) {
    auto chrome = desktop.startApp(chromeSpec);
    browserWindow(chrome, {"https://a.example/", "https://b.example/"});
    AppState app = recordedFor(chromeSpec, AppKind::chromium);
    app.scripted = {scripted({"https://a.example/", "https://b.example/", "https://c.example/", "https://d.example/"}),
                    scripted({"https://a.example/", "https://e.example/", "https://f.example/", "https://g.example/"})};
    snapshot.apps = {app};

    Restore::Result result = run();

    EXPECT_EQ(result.windows, 1);
    EXPECT_EQ(result.tabs, 4);
    EXPECT_EQ(desktop.scriptRunsOf("restoreChromium"), 1);
    auto ids = desktop.visibleWindows(chrome);
    ASSERT_EQ(ids.size(), 2u);
    EXPECT_EQ(desktop.window(ids[1]).tabs[1], "https://e.example/");
    // The blank windows go first, once, and only because a window is to be reopened.
    EXPECT_EQ(desktop.scriptRunsOf("closeBlank"), 1);
    EXPECT_LT(at("appleScript:closeBlank"), at("appleScript:restoreChromium"));
    EXPECT_TRUE(result.problems.empty());
}

TEST_F(RestoreRunTest, BrowserWindowWhoseItemsAreAllEmptyIsNeverReopened) {
    desktop.startApp(safariSpec);
    AppState app = recordedFor(safariSpec, AppKind::safari);
    app.scripted = {scripted({"", ""}), scripted({})};
    snapshot.apps = {app};
    Restore::Result result = run();
    EXPECT_EQ(result.windows, 0);
    EXPECT_EQ(desktop.scriptRunsOf("restoreSafari"), 0);
    EXPECT_EQ(desktop.scriptRunsOf("closeBlank"), 0);
}

TEST_F(RestoreRunTest, LaunchedBrowserSettlesLosesItsBlankWindowAndCountsEveryItem) {
    desktop.install(chromeSpec);
    AppState app = recordedFor(chromeSpec, AppKind::chromium);
    app.scripted = {scripted({"https://a.example/", "", "https://b.example/"}, Frame{0, 25, 1000, 700})};
    snapshot.apps = {app};

    Restore::Result result = run();

    EXPECT_EQ(result.launched, 1);
    EXPECT_EQ(result.windows, 1);
    EXPECT_EQ(result.tabs, 3);  // the empty item counts: it is the saved window's tab count
    EXPECT_NE(std::find(desktop.sleeps.begin(), desktop.sleeps.end(), 2.0), desktop.sleeps.end());
    EXPECT_LT(at("sleep"), at("appleScript:captureChromium"));
    auto ids = desktop.visibleWindows(*desktop.pidOf(chromeID));
    ASSERT_EQ(ids.size(), 1u);
    EXPECT_EQ(desktop.window(ids[0]).tabs, (std::vector<std::string>{"https://a.example/", "https://b.example/"}));
    EXPECT_EQ(desktop.window(ids[0]).frame, (Frame{0, 25, 1000, 700}));
}

TEST_F(RestoreRunTest, BrowserWindowThatFailsGivesItsProblemLine) {
    chromeSpec.scripts = ScriptFault::refuse;
    desktop.startApp(chromeSpec);
    AppState app = recordedFor(chromeSpec, AppKind::chromium);
    app.scripted = {scripted({"https://a.example/", "", "https://b.example/"})};
    snapshot.apps = {app};
    Restore::Result result = run();
    EXPECT_EQ(result.problems,
              std::vector<std::string>{"Google Chrome: a window with 3 tabs failed (check Automation permission)"});
    EXPECT_EQ(result.windows, 0);
    EXPECT_EQ(result.tabs, 0);
}

TEST_F(RestoreRunTest, BrowserWithoutAnIdentifierIsOnlyHidden) {
    SimAppSpec unnamed = appSpec(std::nullopt, "/Applications/Safari Copy.app", "Safari Copy");
    desktop.install(unnamed);
    // Without an identifier it is found by opening its bundle, which hands back the running one.
    auto pid = desktop.startApp(unnamed);
    AppState app = recordedFor(unnamed, AppKind::safari);
    app.hidden = true;
    app.scripted = {scripted({"https://a.example/"})};
    snapshot.apps = {app};
    Restore::Result result = run();
    EXPECT_EQ(desktop.scriptRuns.size(), 0u);
    EXPECT_TRUE(desktop.sleeps.empty());
    EXPECT_TRUE(desktop.app(pid).hidden);
    EXPECT_EQ(result.windows, 0);
}

TEST_F(RestoreRunTest, FreshTerminalGivesItsHomeWindowToTheFirstSavedWindow) {
    desktop.install(terminalSpec);
    for (const char* folder : {"/work/a", "/work/b", "/work/c"}) desktop.addFile(folder);
    AppState app = recordedFor(terminalSpec, AppKind::terminal);
    app.scripted = {scripted({"/work/a"}, Frame{0, 25, 600, 400}), scripted({"/work/b"}), scripted({"/work/c"})};
    snapshot.apps = {app};

    Restore::Result result = run();

    EXPECT_EQ(result.launched, 1);
    EXPECT_EQ(result.windows, 3);
    auto pid = *desktop.pidOf(terminalID);
    auto ids = desktop.visibleWindows(pid);
    ASSERT_EQ(ids.size(), 3u);
    EXPECT_EQ(desktop.window(ids[0]).shellDirectory, "/work/a");
    EXPECT_EQ(desktop.window(ids[0]).frame, (Frame{0, 25, 600, 400}));
    EXPECT_EQ(desktop.window(ids[1]).shellDirectory, "/work/b");
    EXPECT_EQ(desktop.window(ids[2]).shellDirectory, "/work/c");
    int reused = 0;
    for (const auto& script : desktop.scriptRuns) reused += script.script.find(" in window 1\n") != std::string::npos;
    EXPECT_EQ(reused, 1);
    EXPECT_NE(std::find(desktop.sleeps.begin(), desktop.sleeps.end(), 1.5), desktop.sleeps.end());
}

TEST_F(RestoreRunTest, RunningTerminalNeverReusesAWindowAndSkipsWhatIsOpen) {
    auto pid = desktop.startApp(terminalSpec);
    SimWindow home;
    home.tty = "/dev/ttys009";
    home.shellDirectory = desktop.home;
    desktop.addWindow(pid, home);
    desktop.addFile("/work/a");
    AppState app = recordedFor(terminalSpec, AppKind::terminal);
    app.scripted = {scripted({"/work/a"}), scripted({desktop.home}), scripted({})};
    snapshot.apps = {app};

    Restore::Result result = run();

    EXPECT_EQ(result.launched, 0);
    EXPECT_EQ(result.windows, 1);
    EXPECT_EQ(desktop.visibleWindows(pid).size(), 2u);
    EXPECT_EQ(desktop.scriptRunsOf("restoreTerminal"), 1);
    EXPECT_TRUE(desktop.sleeps.empty());
}

TEST_F(RestoreRunTest, ITermRestoresWindowsWithAMissingDirectoryAndNeverReuses) {
    SimWindow open;
    open.tabs = {"/work/a", "/work/b"};
    auto pid = desktop.startApp(itermSpec);
    desktop.addWindow(pid, open);
    for (const char* folder : {"/work/a", "/work/b", "/work/c"}) desktop.addFile(folder);
    AppState app = recordedFor(itermSpec, AppKind::iterm);
    app.scripted = {scripted({"/work/a", "/work/b"}), scripted({"/work/a", "/work/c"})};
    snapshot.apps = {app};
    Restore::Result result = run();
    EXPECT_EQ(result.windows, 1);
    auto ids = desktop.visibleWindows(pid);
    ASSERT_EQ(ids.size(), 2u);
    EXPECT_EQ(desktop.window(ids[1]).tabs, (std::vector<std::string>{"/work/a", "/work/c"}));
}

TEST_F(RestoreRunTest, TerminalWindowThatFailsGivesItsProblemLine) {
    terminalSpec.scripts = ScriptFault::refuse;
    desktop.startApp(terminalSpec);
    AppState app = recordedFor(terminalSpec, AppKind::terminal);
    app.scripted = {scripted({"/work/a"}), scripted({"/work/b"})};
    snapshot.apps = {app};
    Restore::Result result = run();
    EXPECT_EQ(result.problems,
              (std::vector<std::string>{"Terminal: a window failed to open", "Terminal: a window failed to open"}));
}

TEST_F(RestoreRunTest, FinderFolderThatWasDeletedGivesItsLineAndNoScript) {
    auto finder = desktop.startApp(finderSpec);
    desktop.addFile("/Users/tester/Open");
    desktop.addFile("/Users/tester/Kept");
    SimWindow open;
    open.folder = "/Users/tester/Open/";
    desktop.addWindow(finder, open);
    AppState app = recordedFor(finderSpec, AppKind::finder);
    app.scripted = {scripted({"/Users/tester/Deleted/", "/Users/tester/Kept/"}), scripted({"/Users/tester/Open/"}),
                    scripted({}), scripted({"/Users/tester/Kept/"}, Frame{10, 40, 700, 500})};
    snapshot.apps = {app};

    Restore::Result result = run();

    EXPECT_EQ(result.problems, std::vector<std::string>{"Finder: /Users/tester/Deleted/ no longer exists"});
    EXPECT_EQ(desktop.scriptRunsOf("restoreFinder"), 1);
    EXPECT_EQ(result.windows, 1);
    auto ids = desktop.visibleWindows(finder);
    ASSERT_EQ(ids.size(), 2u);
    EXPECT_EQ(desktop.window(ids[1]).folder, "/Users/tester/Kept/");
    EXPECT_EQ(desktop.window(ids[1]).frame, (Frame{10, 40, 700, 500}));
}

TEST_F(RestoreRunTest, FinderScriptThatFailsGivesItsLineAndFinderNeverSettles) {
    finderSpec.scripts = ScriptFault::refuse;
    desktop.install(finderSpec);
    desktop.addFile("/Users/tester/Kept");
    AppState app = recordedFor(finderSpec, AppKind::finder);
    app.scripted = {scripted({"/Users/tester/Kept"})};
    snapshot.apps = {app};
    Restore::Result result = run();
    EXPECT_EQ(result.launched, 1);
    EXPECT_EQ(result.problems, std::vector<std::string>{"Finder: couldn't open /Users/tester/Kept"});
    // Only the launch's own polls (it finishes half a second after answering): no settling sleep for Finder.
    EXPECT_EQ(desktop.sleeps, std::vector<double>(2, 0.25));
}

TEST_F(RestoreRunTest, ApplicationsThatCannotBeHadGiveTheirLinesAndAreNotHidden) {
    SimAppSpec broken = appSpec("com.example.Broken", "/Applications/Broken.app", "Broken");
    broken.fault = LaunchFault::refuse;
    desktop.install(broken);
    AppState missing = recorded(AppKind::generic, "com.example.Missing", "/Applications/Missing.app", "Missing");
    missing.hidden = true;
    AppState brokenApp = recordedFor(broken, AppKind::generic);
    brokenApp.hidden = true;
    snapshot.apps = {missing, brokenApp};
    Restore::Result result = run();
    EXPECT_EQ(result.problems, (std::vector<std::string>{"Missing: app not found", "Broken: could not launch"}));
    EXPECT_EQ(desktop.calls("hide"), 0);
    EXPECT_EQ(result.launched, 0);
    EXPECT_EQ(progressLines, (std::vector<std::string>{"Restoring 1/2: Missing", "Restoring 2/2: Broken"}));
}

TEST_F(RestoreRunTest, ProgressComesExactlyOncePerApplicationBeforeAnythingIsDoneForIt) {
    desktop.install(editorSpec);
    desktop.install(chromeSpec);
    desktop.startApp(safariSpec);
    AppState editor = recordedFor(editorSpec, AppKind::generic);
    editor.windows = {WindowState{"Untitled", std::nullopt, Frame{0, 25, 300, 300}, false, false}};
    AppState chrome = recordedFor(chromeSpec, AppKind::chromium);
    chrome.scripted = {scripted({"https://a.example/"})};
    AppState safariApp = recordedFor(safariSpec, AppKind::safari);
    safariApp.scripted = {scripted({"https://b.example/"})};
    snapshot.apps = {editor, chrome, safariApp};

    run();

    EXPECT_EQ(progressLines, (std::vector<std::string>{"Restoring 1/3: Editor", "Restoring 2/3: Google Chrome",
                                                       "Restoring 3/3: Safari"}));
    EXPECT_EQ(desktop.journal.front(), "progress:Restoring 1/3: Editor");
    EXPECT_LT(at("progress:Restoring 1/3"), at("openApplication:/Applications/Editor.app"));
    EXPECT_LT(at("openApplication:/Applications/Editor.app"), at("progress:Restoring 2/3"));
    EXPECT_LT(at("progress:Restoring 2/3"), at("openApplication:/Applications/Google Chrome.app"));
    EXPECT_LT(at("appleScript:restoreChromium"), at("progress:Restoring 3/3"));
    EXPECT_LT(at("progress:Restoring 3/3"), at("appleScript:captureSafari"));
}

// One process with two recorded windows, where each instance is recorded on
// its own (X11): the editor launched by this restore shows one window.
class SeveralWindowsInOneProcessTest : public RestoreRunTest {
protected:
    void SetUp() override {
        RestoreRunTest::SetUp();
        desktop.windowManager = "openbox";
        AppState editor = recordedFor(editorSpec, AppKind::generic);
        for (double x : {10.0, 500.0}) {
            WindowState window;
            window.frame = Frame{x, 40, 400, 300};
            editor.windows.push_back(window);
        }
        snapshot.apps = {editor};
    }

    std::vector<Frame> editorFrames() {
        std::vector<Frame> frames;
        auto pid = desktop.pidOf(*editorSpec.bundleID);
        if (!pid) return frames;
        for (std::uint64_t id : desktop.visibleWindows(*pid)) frames.push_back(desktop.window(id).frame);
        return frames;
    }
};

TEST_F(SeveralWindowsInOneProcessTest, TheMissingWindowIsAskedForWhereTheEntryOffersAWay) {
    SimWindow another;
    another.appearsAfter = 1.5;
    editorSpec.newWindow = another;
    desktop.install(editorSpec);
    Restore::Result result = run();
    EXPECT_EQ(desktop.calls("openNewWindow"), 1);
    EXPECT_EQ(result.launched, 1);
    EXPECT_EQ(result.windows, 2);
    EXPECT_TRUE(result.problems.empty());
    EXPECT_EQ(editorFrames(), (std::vector<Frame>{{10, 40, 400, 300}, {500, 40, 400, 300}}));
}

TEST_F(SeveralWindowsInOneProcessTest, WithoutAWayTheMissingWindowIsReportedAndNotWaitedFor) {
    desktop.install(editorSpec);
    Restore::Result result = run();
    EXPECT_EQ(desktop.calls("openNewWindow"), 1);
    EXPECT_EQ(result.windows, 1);
    EXPECT_EQ(result.problems,
              (std::vector<std::string>{"Editor: a window could not be reopened (the program offers no new-window action)"}));
    EXPECT_EQ(editorFrames(), (std::vector<Frame>{{10, 40, 400, 300}}));
    EXPECT_LT(desktop.now(), 3.0) << "no wait for a window that cannot come";
}

TEST_F(SeveralWindowsInOneProcessTest, AnAskedForWindowThatNeverComesIsReported) {
    SimWindow late;
    late.appearsAfter = 60;
    editorSpec.newWindow = late;
    desktop.install(editorSpec);
    Restore::Result result = run();
    EXPECT_EQ(result.windows, 1);
    EXPECT_EQ(result.problems, (std::vector<std::string>{"Editor: a window asked for did not appear"}));
    EXPECT_LT(desktop.now(), 15.0) << "one wait of ten seconds for it, not another twelve";
}

// Recorded A, B and C; the launched editor shows B and C.
class MissingFirstWindowTest : public SeveralWindowsInOneProcessTest {
protected:
    void SetUp() override {
        SeveralWindowsInOneProcessTest::SetUp();
        snapshot.apps[0].windows.clear();
        for (const char* title : {"A", "B", "C"}) {
            WindowState window;
            window.title = title;
            window.frame = frameOf(title);
            snapshot.apps[0].windows.push_back(window);
        }
        editorSpec.windowsOnLaunch.clear();
        for (const char* title : {"B", "C"}) {
            SimWindow shown;
            shown.title = title;
            shown.frame = Frame{1, 1, 200, 100};
            editorSpec.windowsOnLaunch.push_back(shown);
        }
    }
    static Frame frameOf(const std::string& title) {
        return Frame{title == "A" ? 10.0 : title == "B" ? 300.0 : 600.0, 40, 250, 200};
    }
    std::optional<Frame> frameOfWindowTitled(const std::string& title) {
        auto pid = desktop.pidOf(*editorSpec.bundleID);
        if (!pid) return std::nullopt;
        for (std::uint64_t id : desktop.visibleWindows(*pid))
            if (desktop.window(id).title == title) return desktop.window(id).frame;
        return std::nullopt;
    }
};

TEST_F(MissingFirstWindowTest, TheWindowsThereKeepTheirOwnFramesAndOnlyTheMissingOneIsAskedFor) {
    SimWindow untitled;
    untitled.title = "Untitled";
    untitled.appearsAfter = 1.0;
    editorSpec.newWindow = untitled;
    desktop.install(editorSpec);
    Restore::Result result = run();
    EXPECT_EQ(desktop.calls("openNewWindow"), 1);
    EXPECT_EQ(result.windows, 3);
    EXPECT_TRUE(result.problems.empty()) << result.problems.front();
    EXPECT_EQ(frameOfWindowTitled("B"), frameOf("B"));
    EXPECT_EQ(frameOfWindowTitled("C"), frameOf("C"));
    EXPECT_EQ(frameOfWindowTitled("Untitled"), frameOf("A"));
}

TEST_F(MissingFirstWindowTest, WhenTheAskedForWindowNeverComesTheOthersStillGetTheirOwnFrames) {
    SimWindow late;
    late.appearsAfter = 60;
    editorSpec.newWindow = late;
    desktop.install(editorSpec);
    Restore::Result result = run();
    EXPECT_EQ(desktop.calls("openNewWindow"), 1);
    EXPECT_EQ(result.windows, 2);
    EXPECT_EQ(result.problems, (std::vector<std::string>{"Editor: a window asked for did not appear"}));
    EXPECT_EQ(frameOfWindowTitled("B"), frameOf("B"));
    EXPECT_EQ(frameOfWindowTitled("C"), frameOf("C"));
}

TEST_F(SeveralWindowsInOneProcessTest, ARunningProcessWithEveryWindowIsNeverAsked) {
    desktop.install(editorSpec);
    std::int32_t pid = desktop.startApp(editorSpec);
    desktop.addWindow(pid, SimWindow{});
    desktop.addWindow(pid, SimWindow{});
    Restore::Result result = run();
    EXPECT_EQ(desktop.calls("openNewWindow"), 0);
    EXPECT_EQ(result.launched, 0);
    EXPECT_EQ(result.windows, 2);
    EXPECT_TRUE(result.problems.empty());
    EXPECT_EQ(desktop.sleeps.size(), 0u);
}

TEST_F(RestoreRunTest, OnAMacAnAppIsNeverAskedForNewWindows) {
    desktop.install(editorSpec);
    AppState editor = recordedFor(editorSpec, AppKind::generic);
    editor.windows.resize(2);
    snapshot.apps = {editor};
    Restore::Result result = run();
    EXPECT_EQ(desktop.calls("openNewWindow"), 0);
    EXPECT_EQ(result.windows, 1);
    EXPECT_TRUE(result.problems.empty()) << "the generic restore reports nothing";
}

TEST_F(RestoreRunTest, EmptySnapshotDoesNothing) {
    Restore::Result result = run();
    EXPECT_TRUE(progressLines.empty());
    EXPECT_EQ(result.launched, 0);
    EXPECT_EQ(result.windows, 0);
    EXPECT_EQ(result.tabs, 0);
    EXPECT_TRUE(result.problems.empty());
}

}  // namespace
}  // namespace tarnwick

namespace tarnwick {
namespace {

// The X server ends 0.3 s into a restore of three programs that take long to start.
TEST_F(RestoreRunTest, ADesktopThatGoesAwayStopsTheRestoreAtOnceWithALastProblemLine) {
    desktop.windowManager = "openbox";
    desktop.lostAt = 0.3;
    for (const char* name : {"One", "Two", "Three"}) {
        SimAppSpec spec = appSpec("com.example." + std::string(name), "/Applications/" + std::string(name) + ".app", name);
        spec.finishedAfter = 30;
        spec.windowsOnLaunch = {SimWindow{}};
        spec.windowsOnLaunch[0].appearsAfter = 30;
        desktop.install(spec);
        AppState app = recordedFor(spec, AppKind::generic);
        WindowState window;
        window.frame = Frame{10, 10, 300, 200};
        app.windows = {window, window};
        snapshot.apps.push_back(app);
    }
    Restore::Result result = run();
    EXPECT_EQ(progressLines, (std::vector<std::string>{"Restoring 1/3: One"}));
    EXPECT_EQ(result.launched, 1);
    EXPECT_EQ(result.windows, 0);
    EXPECT_EQ(result.problems, (std::vector<std::string>{std::string(Restore::desktopLostProblem)}));
    EXPECT_LT(desktop.now(), 1.0) << "no launch polling or window wait after the display went away";
    EXPECT_EQ(desktop.calls("openApplication"), 1);
}

TEST_F(RestoreRunTest, WaitingForWindowsEndsWhenTheDesktopGoesAway) {
    desktop.lostAt = 2.0;
    desktop.install(editorSpec);
    auto pid = desktop.startApp(editorSpec);
    auto windows = Restore::waitForWindows(pid, 3, 12.0);
    EXPECT_TRUE(windows.empty());
    EXPECT_GE(desktop.now(), 2.0);
    EXPECT_LT(desktop.now(), 3.0);
}

}  // namespace
}  // namespace tarnwick

namespace tarnwick {
namespace {

// Under a window manager every program is placed before any is looked at
// again: one wait serves them all, and a frame that did not hold is asked for
// once more after every program had its turn.
TEST_F(RestoreRunTest, UnderAWindowManagerWindowsAreLookedAtAgainOnceAllArePlaced) {
    desktop.windowManager = "openbox";
    std::vector<std::string> names{"One", "Two", "Three"};
    for (const std::string& name : names) {
        SimAppSpec spec = appSpec("com.example." + name, "/Applications/" + name + ".app", name);
        desktop.install(spec);
        auto pid = desktop.startApp(spec);
        SimWindow stubborn;
        stubborn.title = name;
        stubborn.unreadable = {"AXSize"};  // its frame never reads back as written
        desktop.addWindow(pid, stubborn);
        AppState app = recordedFor(spec, AppKind::generic);
        app.windows = {WindowState{name, std::nullopt, Frame{10, 20, 300, 200}, false, false}};
        snapshot.apps.push_back(app);
    }
    Restore::Result result = run();
    EXPECT_EQ(result.windows, 3);
    EXPECT_TRUE(result.problems.empty());
    EXPECT_GE(desktop.now(), 0.5) << "the windows were looked at for a moment";
    EXPECT_LT(desktop.now(), 1.0) << "one wait for the three, not one each";
    std::vector<std::string> written;
    for (const auto& write : desktop.writes)
        if (write.attribute == "AXPosition") written.push_back(desktop.window(write.windowId).title.value_or(""));
    EXPECT_EQ(written, (std::vector<std::string>{"One", "Two", "Three", "One", "Two", "Three"}))
        << "each placed once, then each asked once more after all were placed";
}

}  // namespace
}  // namespace tarnwick
