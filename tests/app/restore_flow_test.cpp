// The restore flow from the menu: the trust warning, busy and the timer while
// it runs, the log line and the report.
#include "app_fixture.h"

#include "app/texts.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace tarnwick::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RestoreFlowTest : public AppTest {
protected:
    RestoreFlowTest() { desktop.install(appSpec("com.apple.Notes", "/System/Applications/Notes.app", "Notes")); }

    // Notes with one window at x = 40, to be launched and placed.
    Snapshot notesSession() {
        Snapshot snapshot;
        snapshot.date = desktop.startDate;
        snapshot.reason = "manual";
        snapshot.apps.push_back(AppState{"Notes",
                                         "com.apple.Notes",
                                         "/System/Applications/Notes.app",
                                         AppKind::generic,
                                         false,
                                         {WindowState{"Notes", std::nullopt, Frame{40, 60, 700, 500}, false, false}},
                                         {}});
        return snapshot;
    }

    // Applications that are nowhere to be found: one problem line each.
    static Snapshot missingApps(int count) {
        Snapshot snapshot;
        snapshot.reason = "auto";
        for (int i = 1; i <= count; ++i)
            snapshot.apps.push_back(AppState{"Gone " + std::to_string(i), "com.example.gone" + std::to_string(i),
                                             "/Applications/Gone " + std::to_string(i) + ".app", AppKind::generic,
                                             false, {}, {}});
        return snapshot;
    }
};

TEST_F(RestoreFlowTest, RunsOnTheWorkQueueLogsAndReports) {
    launch();
    // The window the launch shows, put back in place by the restore.
    SimAppSpec notes = appSpec("com.apple.Notes", "/System/Applications/Notes.app", "Notes");
    SimWindow shown;
    shown.title = "Notes";
    notes.windowsOnLaunch = {shown};
    desktop.install(notes);

    delegate->restore(notesSession());
    EXPECT_EQ(delegate->busy(), "Restoring\u2026");
    shell.settle();

    EXPECT_FALSE(delegate->busy());
    EXPECT_THAT(logLines("restore"), ElementsAre("restore: launched 1, windows 1, tabs 0, problems []"));
    ASSERT_EQ(shell.alerts.size(), 1u);
    EXPECT_EQ(shell.alerts[0].message, "Session restored");
    EXPECT_EQ(shell.alerts[0].informative, "Launched 1 apps, put back 1 windows.");
    EXPECT_THAT(shell.alerts[0].buttons, IsEmpty()) << "the single default button";
    EXPECT_EQ(shell.activations, 1) << "brought to the front for the report";
    auto pid = desktop.pidOf("com.apple.Notes");
    ASSERT_TRUE(pid);
    EXPECT_EQ(desktop.window(desktop.visibleWindows(*pid).at(0)).frame, (Frame{40, 60, 700, 500}));
    EXPECT_EQ(storedCount(), 0u) << "no snapshot before or after a restore";
}

TEST_F(RestoreFlowTest, ProgressLinesReachTheMenuOneByOne) {
    launch();
    Snapshot two = notesSession();
    two.apps.push_back(missingApps(1).apps[0]);
    delegate->restore(two);

    std::vector<std::string> seen;
    std::vector<std::string> firstItems;
    while (shell.alerts.empty() && shell.runNextMainTask()) {
        seen.push_back(delegate->busy().value_or("(idle)"));
        MenuBar::Menu menu = shell.openMenu();
        firstItems.push_back(menu[0].title + (menu[0].enabled ? "" : " (disabled)"));
    }
    EXPECT_THAT(seen, ElementsAre("Restoring 1/2: Notes", "Restoring 2/2: Gone 1", "(idle)"));
    EXPECT_THAT(firstItems, ElementsAre("Restoring 1/2: Notes (disabled)", "Restoring 2/2: Gone 1 (disabled)",
                                        "No snapshots yet (disabled)"));
}

TEST_F(RestoreFlowTest, ARestoreDuringASaveDoesNothing) {
    startNotes();
    launch();
    delegate->save("manual");
    delegate->restore(notesSession());
    shell.settle();
    EXPECT_THAT(shell.alerts, IsEmpty());
    EXPECT_THAT(logLines("restore"), IsEmpty());
    EXPECT_EQ(shell.workRun(), 2) << "the prune and the save";

    // Without access too: asked for while busy, it shows no warning and does
    // not wait for the save to end.
    desktop.trusted = false;
    delegate->save("manual");
    delegate->restore(notesSession());
    shell.settle();
    EXPECT_THAT(shell.alerts, IsEmpty());
    EXPECT_THAT(logLines("restore"), IsEmpty());
    EXPECT_EQ(shell.workRun(), 3) << "the second save only";
}

TEST_F(RestoreFlowTest, ASecondRestoreDuringARestoreDoesNothing) {
    launch();
    delegate->restore(notesSession());
    delegate->restore(missingApps(3));
    shell.settle();
    EXPECT_EQ(shell.alerts.size(), 1u);
    EXPECT_THAT(logLines("restore"), ElementsAre("restore: launched 1, windows 0, tabs 0, problems []"));
}

TEST_F(RestoreFlowTest, WithoutTrustOpenSettingsAsksForAccessInstead) {
    shell.integers["autosaveMinutes"] = 5;
    launch();
    desktop.trusted = false;
    int promptsBefore = desktop.calls("promptForAccessibilityTrust");
    auto timer = delegate->timer();
    shell.alertAnswers = {1};
    delegate->restore(notesSession());
    shell.settle();

    ASSERT_EQ(shell.alerts.size(), 1u);
    EXPECT_EQ(shell.alerts[0].message, "Accessibility access is off");
    EXPECT_EQ(shell.alerts[0].informative,
              "Tarnwick can relaunch apps and reopen tabs, but can't move windows back into place until you allow it "
              "in System Settings \u2192 Privacy & Security \u2192 Accessibility.");
    EXPECT_THAT(shell.alerts[0].buttons, ElementsAre("Restore anyway", "Open Settings"));
    EXPECT_EQ(shell.activations, 1);
    EXPECT_EQ(desktop.calls("promptForAccessibilityTrust"), promptsBefore + 1);
    EXPECT_THAT(shell.openedURLs,
                ElementsAre("x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility"));
    EXPECT_FALSE(delegate->busy());
    EXPECT_THAT(logLines("restore"), IsEmpty());
    EXPECT_THAT(desktop.journal, ::testing::Not(::testing::Contains("openApplication:/System/Applications/Notes.app")));
    ASSERT_TRUE(timer);
    EXPECT_TRUE(std::static_pointer_cast<SimShell::SimTimer>(timer)->valid) << "the timer keeps running";
}

TEST_F(RestoreFlowTest, OnLinuxWithoutAWindowManagerCancelOpensNothing) {
    shell.linuxWording = true;
    launch();
    desktop.trusted = false;
    shell.alertAnswers = {1};
    delegate->restore(notesSession());
    shell.settle();

    ASSERT_EQ(shell.alerts.size(), 1u);
    EXPECT_EQ(shell.alerts[0].message, "No window manager answers");
    EXPECT_EQ(shell.alerts[0].informative,
              "Tarnwick can relaunch programs, but can't move windows back into place until a window manager that "
              "follows EWMH runs on this display.");
    EXPECT_THAT(shell.alerts[0].buttons, ElementsAre("Restore anyway", "Cancel"));
    EXPECT_THAT(shell.openedURLs, IsEmpty());
    EXPECT_FALSE(delegate->busy());
    EXPECT_THAT(logLines("restore"), IsEmpty());
}

TEST_F(RestoreFlowTest, WithoutTrustRestoreAnywayRunsAsWhenTrusted) {
    launch();
    desktop.trusted = false;
    shell.alertAnswers = {0};
    delegate->restore(notesSession());
    EXPECT_EQ(delegate->busy(), "Restoring\u2026");
    shell.settle();

    ASSERT_EQ(shell.alerts.size(), 2u);
    EXPECT_EQ(shell.alerts[1].message, "Session restored");
    EXPECT_EQ(shell.alerts[1].informative, "Launched 1 apps, put back 0 windows.");
    EXPECT_THAT(logLines("restore"), ElementsAre("restore: launched 1, windows 0, tabs 0, problems []"));
    EXPECT_THAT(shell.openedURLs, IsEmpty());
}

TEST_F(RestoreFlowTest, ARestoreConfirmedWhileASaveStartedRunsWhenTheSaveEnds) {
    startNotes();
    startHungBrowser();  // the launch snapshot takes 20 s, so it outlasts the warning
    shell.integers["autosaveMinutes"] = 5;
    launch();
    desktop.trusted = false;
    shell.alertAnswers = {0};
    shell.alertOpenFor = 70;  // the snapshot a minute after launch starts under the warning
    delegate->restore(notesSession());

    ASSERT_EQ(shell.alerts.size(), 1u);
    EXPECT_EQ(shell.alerts[0].message, "Accessibility access is off");
    // The save's work may have ended on its own thread already; its completion
    // on the main queue has not run yet.
    EXPECT_EQ(delegate->busy(), "Saving\u2026") << "the save is still running when the warning closes";

    // The save ends, and the restore starts in the same turn of the main
    // queue: never beside the save, and with no idle moment for another one.
    std::vector<std::string> seen;
    while (shell.alerts.size() == 1 && shell.runNextMainTask()) seen.push_back(delegate->busy().value_or("(idle)"));
    EXPECT_THAT(seen, ElementsAre("Restoring\u2026", "Restoring 1/1: Notes", "(idle)"));
    shell.settle();

    ASSERT_EQ(shell.alerts.size(), 2u);
    EXPECT_EQ(shell.alerts[1].message, "Session restored");
    // Without access the generic windows are neither listed nor put back.
    std::vector<std::string> operations;
    for (const std::string& line : logLines(""))
        if (line.rfind("save", 0) == 0 || line.rfind("restore", 0) == 0) operations.push_back(line);
    EXPECT_THAT(operations, ElementsAre("save (auto): 2 apps \u00B7 0 windows",
                                        "restore: launched 0, windows 0, tabs 0, problems []"));
    EXPECT_EQ(shell.workRun(), 3) << "the prune, the save, then the restore";
    EXPECT_FALSE(delegate->busy());
    ASSERT_EQ(shell.liveTimers().size(), 1u) << "the report arms the timer again";
}

TEST_F(RestoreFlowTest, ARestoreConfirmedWhileAnotherRanRunsAfterItsReport) {
    launch();
    desktop.trusted = false;
    shell.alertAnswers = {0, 0};
    shell.alertOpenFor = 10;
    // Under the first warning a second restore is asked for and confirmed at
    // its own warning, so it runs first and the first waits for its report.
    shell.after(5, [this] { delegate->restore(missingApps(2)); });
    delegate->restore(notesSession());
    EXPECT_EQ(shell.alerts.size(), 2u);
    EXPECT_TRUE(delegate->busy()) << "the second restore runs";
    shell.settle();

    ASSERT_EQ(shell.alerts.size(), 4u);
    EXPECT_EQ(shell.alerts[2].message, "Session restored, with some gaps");
    EXPECT_EQ(shell.alerts[3].message, "Session restored");
    EXPECT_THAT(logLines("restore"),
                ElementsAre("restore: launched 0, windows 0, tabs 0, problems [\"Gone 1: app not found\", "
                            "\"Gone 2: app not found\"]",
                            "restore: launched 1, windows 0, tabs 0, problems []"));
    EXPECT_FALSE(delegate->busy());
}

TEST_F(RestoreFlowTest, NoProblemsAndNoTabsEndsTheTextWithWindows) {
    MenuBar::Alert alert = MenuBar::restoreReport(Restore::Result{3, 11, 0, {}});
    EXPECT_EQ(alert.message, "Session restored");
    EXPECT_EQ(alert.informative, "Launched 3 apps, put back 11 windows.");
    EXPECT_THAT(alert.buttons, IsEmpty());
}

TEST_F(RestoreFlowTest, TabsAndProblemsFollowTheCounts) {
    MenuBar::Alert alert = MenuBar::restoreReport(
        Restore::Result{0, 4, 9, {"Safari: a window with 3 tabs failed to open", "Gone: app not found"}});
    EXPECT_EQ(alert.message, "Session restored, with some gaps");
    EXPECT_EQ(alert.informative,
              "Launched 0 apps, put back 4 windows and reopened 9 tabs.\n\n"
              "\u2022 Safari: a window with 3 tabs failed to open\n\u2022 Gone: app not found");
    EXPECT_EQ(MenuBar::restoreReport(Restore::Result{1, 1, 1, {}}).informative,
              "Launched 1 apps, put back 1 windows and reopened 1 tabs.");
}

TEST_F(RestoreFlowTest, TwentyProblemsShowTwelveAndLogAll) {
    launch();
    delegate->restore(missingApps(20));
    shell.settle();

    ASSERT_EQ(shell.alerts.size(), 1u);
    EXPECT_EQ(shell.alerts[0].message, "Session restored, with some gaps");
    std::string expected = "Launched 0 apps, put back 0 windows.\n";
    for (int i = 1; i <= 12; ++i) expected += "\n\u2022 Gone " + std::to_string(i) + ": app not found";
    EXPECT_EQ(shell.alerts[0].informative, expected);

    std::string problems;
    for (int i = 1; i <= 20; ++i)
        problems += (i > 1 ? ", " : "") + std::string("\"Gone ") + std::to_string(i) + ": app not found\"";
    EXPECT_THAT(logLines("restore"),
                ElementsAre("restore: launched 0, windows 0, tabs 0, problems [" + problems + "]"));
}

TEST_F(RestoreFlowTest, TheTimerPausesDuringARestoreAndStartsAgainFromTheReport) {
    startNotes();
    shell.integers["autosaveMinutes"] = 5;
    launch();
    auto before = std::static_pointer_cast<SimShell::SimTimer>(delegate->timer());
    ASSERT_TRUE(before);

    // Seventeen applications whose launches never answer: 30 s each, 8.5 minutes in all.
    Snapshot slow;
    slow.reason = "auto";
    for (int i = 1; i <= 17; ++i) {
        std::string id = "com.example.slow" + std::to_string(i);
        std::string path = "/Applications/Slow " + std::to_string(i) + ".app";
        SimAppSpec spec = appSpec(id, path, "Slow " + std::to_string(i));
        spec.fault = LaunchFault::hang;
        desktop.install(spec);
        slow.apps.push_back(AppState{"Slow " + std::to_string(i), id, path, AppKind::generic, false, {}, {}});
    }
    double started = desktop.now();
    delegate->restore(slow);
    EXPECT_FALSE(before->valid) << "invalidated as the restore starts";
    EXPECT_EQ(delegate->timer(), before) << "the field keeps the dead timer until the report";
    EXPECT_TRUE(shell.liveTimers().empty());

    shell.settle();
    double reported = desktop.now();
    EXPECT_GE(reported - started, 480.0);
    EXPECT_EQ(before->ticks, 0);
    EXPECT_THAT(logLines("save"), IsEmpty()) << "no timed snapshot during the restore";
    ASSERT_EQ(shell.liveTimers().size(), 1u);
    auto after = shell.liveTimers()[0];
    EXPECT_NE(after, before);
    EXPECT_EQ(after->interval, 300.0);
    EXPECT_EQ(after->nextTick, reported + 300.0);

    shell.runFor(299);
    EXPECT_THAT(logLines("save"), IsEmpty());
    shell.runFor(1);
    EXPECT_THAT(logLines("save (auto)"), ::testing::SizeIs(1));
}

TEST_F(RestoreFlowTest, WithTimedSnapshotsOffTheReportLeavesNoTimer) {
    launch();
    delegate->restore(notesSession());
    shell.settle();
    ASSERT_EQ(shell.alerts.size(), 1u);
    EXPECT_TRUE(shell.timers.empty());
    EXPECT_FALSE(delegate->timer());
}

TEST_F(RestoreFlowTest, TheProblemListIsQuotedWithEscapes) {
    EXPECT_EQ(MenuBar::bracketedList({}), "[]");
    EXPECT_EQ(MenuBar::bracketedList({"a"}), "[\"a\"]");
    EXPECT_EQ(MenuBar::bracketedList({"say \"hi\"", "back\\slash", "two\nlines\ttab\r"}),
              "[\"say \\\"hi\\\"\", \"back\\\\slash\", \"two\\nlines\\ttab\\r\"]");
    EXPECT_EQ(MenuBar::bracketedList({std::string("nul\0bell\a", 9), "caf\u00E9 \u2014 ok"}),
              "[\"nul\\0bell\\u{7}\", \"caf\u00E9 \u2014 ok\"]");
    EXPECT_EQ(MenuBar::restoreLine(Restore::Result{2, 5, 7, {"Finder: /x no longer exists"}}),
              "restore: launched 2, windows 5, tabs 7, problems [\"Finder: /x no longer exists\"]");
}

// A snapshot that this user's Tarnwick did not save, on a desktop where
// nothing checks what a restore starts (X11): it names a program by its
// command line.
class ForeignRestoreFlowTest : public RestoreFlowTest {
protected:
    ForeignRestoreFlowTest() {
        desktop.windowManager = "Openbox";
        desktop.install(appSpec(std::nullopt, "/usr/bin/xclock", "Clock"));
    }

    Snapshot foreign() {
        Snapshot snapshot;
        snapshot.date = desktop.startDate;
        snapshot.reason = "manual";
        AppState clock{"Clock", std::nullopt, "/usr/bin/xclock", AppKind::generic, false, {}, {}};
        clock.commandLine = std::vector<std::string>{"/usr/bin/xclock", "-digital"};
        snapshot.apps.push_back(clock);
        snapshot.trusted = false;
        return snapshot;
    }

    int clockStarts() const {
        return static_cast<int>(std::count_if(desktop.journal.begin(), desktop.journal.end(), [](const std::string& e) {
            return e.rfind("launch:/usr/bin/xclock", 0) == 0;
        }));
    }
};

TEST_F(ForeignRestoreFlowTest, AsksFirstAndByDefaultRestoresWithoutWhatTheFileNames) {
    launch();
    delegate->restore(foreign());
    shell.settle();
    ASSERT_EQ(shell.alerts.size(), 2u);
    EXPECT_EQ(shell.alerts[0].message, "This snapshot was not saved by Tarnwick on this computer");
    EXPECT_NE(shell.alerts[0].informative.find("\u2022 Clock: the command line /usr/bin/xclock -digital"),
              std::string::npos)
        << shell.alerts[0].informative;
    EXPECT_THAT(shell.alerts[0].buttons, ElementsAre("Restore without them", "Start them too", "Cancel"));
    EXPECT_EQ(clockStarts(), 0);
    EXPECT_EQ(shell.alerts[1].message, "Session restored, with some gaps");
    EXPECT_NE(shell.alerts[1].informative.find("\u2022 Clock: not started: the command line /usr/bin/xclock -digital"),
              std::string::npos)
        << shell.alerts[1].informative;
}

TEST_F(ForeignRestoreFlowTest, StartThemTooStartsTheCommandLine) {
    launch();
    shell.alertAnswers = {1};
    delegate->restore(foreign());
    shell.settle();
    ASSERT_EQ(shell.alerts.size(), 2u);
    EXPECT_EQ(clockStarts(), 1);
    EXPECT_EQ(shell.alerts[1].informative.find("not started"), std::string::npos) << shell.alerts[1].informative;
}

TEST_F(ForeignRestoreFlowTest, CancelRestoresNothing) {
    launch();
    shell.alertAnswers = {2};
    delegate->restore(foreign());
    shell.settle();
    EXPECT_EQ(shell.alerts.size(), 1u) << "no report: nothing ran";
    EXPECT_EQ(clockStarts(), 0);
    EXPECT_FALSE(delegate->busy());
    EXPECT_TRUE(logLines("restore").empty());
}

TEST_F(ForeignRestoreFlowTest, ASnapshotOfItsOwnIsNotQuestioned) {
    launch();
    Snapshot own = foreign();
    own.trusted = true;
    delegate->restore(own);
    shell.settle();
    ASSERT_EQ(shell.alerts.size(), 1u);
    EXPECT_EQ(clockStarts(), 1);
}

}  // namespace
}  // namespace tarnwick::testing
