// The launch sequence and the timed snapshots.
#include "app_fixture.h"

#include "app/texts.h"

#include <gmock/gmock.h>

#include <limits>

namespace tarnwick::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;

class LaunchTest : public AppTest {
protected:
    // A hand-edited interval beyond a day: no timer, no snapshot, off in the menu, one log line.
    void expectIgnored(std::int64_t minutes) {
        startNotes();
        shell.integers["autosaveMinutes"] = minutes;
        launch();
        EXPECT_TRUE(shell.liveTimers().empty());
        shell.runFor(3600);
        EXPECT_EQ(storedCount(), 0u);
        MenuBar::Menu menu = shell.openMenu();
        item(menu, "Not saved yet \u00B7 saves at restart");
        EXPECT_TRUE(item(menu, "Timed snapshots").submenu.at(0).checked) << "read as off";
        shell.openMenu();
        EXPECT_THAT(logLines("settings"), ElementsAre("settings: autosaveMinutes " + std::to_string(minutes) +
                                                      " is beyond 1440 minutes; ignored, timed snapshots are off"));
        EXPECT_EQ(shell.integers["autosaveMinutes"], minutes) << "the setting is left as it is";
    }
};

TEST_F(LaunchTest, ShowsTheIconAndTheEditMenuObservesPowerOffAndLogsTheBootTime) {
    launch();
    EXPECT_TRUE(shell.statusItem.shown);
    EXPECT_EQ(shell.statusItem.symbol, "rectangle.stack");
    EXPECT_EQ(shell.statusItem.description, "Tarnwick");
    EXPECT_TRUE(shell.powerOffObserved);
    EXPECT_THAT(logLines("launched"), ElementsAre("launched; boot time " + MenuBar::plainDateText(Store::bootTime())));
    EXPECT_THAT(logLines("launched")[0], MatchesRegex("launched; boot time [0-9]{4}-[0-9]{2}-[0-9]{2} "
                                                      "[0-9]{2}:[0-9]{2}:[0-9]{2} \\+0000"));
}

TEST_F(LaunchTest, TheMainMenuCarriesTheStandardEditingCommands) {
    launch();
    ASSERT_TRUE(shell.mainMenu);
    const MenuBar::Menu& menu = *shell.mainMenu;
    ASSERT_EQ(menu.size(), 2u);
    EXPECT_EQ(menu[0].title, "");
    EXPECT_FALSE(menu[0].hasAction());
    EXPECT_TRUE(menu[0].submenu.empty());
    EXPECT_EQ(menu[1].title, "Edit");
    EXPECT_FALSE(menu[1].hasAction());
    EXPECT_EQ(menu[1].keyEquivalent, "");
    std::vector<std::string> rows;
    for (const MenuBar::MenuItem& item : menu[1].submenu) {
        EXPECT_EQ(item.command, MenuBar::Command::none) << "editing commands go up the responder chain";
        rows.push_back(item.separator ? "---" : item.title + " " + item.responderAction + " " + item.keyEquivalent);
    }
    EXPECT_THAT(rows, ElementsAre("Undo undo: z", "Redo redo: Z", "---", "Cut cut: x", "Copy copy: c",
                                  "Paste paste: v", "Select All selectAll: a"));
}

TEST_F(LaunchTest, AnEmptyStoreLeavesLastSavedUnset) {
    launch();
    EXPECT_FALSE(delegate->lastSaved());
    EXPECT_EQ(item(shell.openMenu(), "Not saved yet \u00B7 saves at restart").enabled, false);
}

TEST_F(LaunchTest, LastSavedIsTheNewestStoredSnapshot) {
    place(1);
    Snapshot newest = place(9);
    place(5);
    launch();
    EXPECT_EQ(delegate->lastSaved(), newest.date);
}

TEST_F(LaunchTest, AsksForTrustOnlyWhenMissing) {
    launch();
    EXPECT_EQ(desktop.calls("promptForAccessibilityTrust"), 0);

    desktop.trusted = false;
    auto second = MenuBar::AppDelegate::make(shell);
    second->applicationDidFinishLaunching();
    shell.settle();
    EXPECT_EQ(desktop.calls("promptForAccessibilityTrust"), 1);
}

TEST_F(LaunchTest, TheFirstLaunchRegistersTheLoginItemOnce) {
    launch();
    EXPECT_EQ(shell.loginRegistrations, 1);
    EXPECT_TRUE(shell.booleans["loginItemConfigured"]);
    EXPECT_EQ(shell.loginStatus, MenuBar::LoginItemStatus::enabled);

    // The user turns it off; the next launch leaves that alone.
    shell.loginStatus = MenuBar::LoginItemStatus::notRegistered;
    auto next = MenuBar::AppDelegate::make(shell);
    next->applicationDidFinishLaunching();
    shell.settle();
    EXPECT_EQ(shell.loginRegistrations, 1);
    EXPECT_EQ(shell.loginStatus, MenuBar::LoginItemStatus::notRegistered);
    EXPECT_TRUE(logLines("login item").empty());
}

TEST_F(LaunchTest, AFailedRegistrationIsLoggedAndNotRetried) {
    shell.loginError = "Operation not permitted";
    launch();
    EXPECT_THAT(logLines("login item"), ElementsAre("login item: Operation not permitted"));
    EXPECT_TRUE(shell.booleans["loginItemConfigured"]);
    EXPECT_TRUE(shell.alerts.empty());

    auto next = MenuBar::AppDelegate::make(shell);
    next->applicationDidFinishLaunching();
    shell.settle();
    EXPECT_EQ(shell.loginRegistrations, 1);
}

TEST_F(LaunchTest, PrunesTheStoreOnTheWorkQueue) {
    for (int minute = 0; minute < 14; ++minute) place(minute);
    launch();
    EXPECT_EQ(storedCount(), Store::keep);
    EXPECT_GE(shell.workRun(), 1);
}

TEST_F(LaunchTest, AFreshInstallationTakesNoTimedSnapshots) {
    startNotes();
    launch();
    EXPECT_TRUE(shell.integers.empty()) << "no defaults are registered";
    EXPECT_TRUE(shell.timers.empty());
    EXPECT_FALSE(delegate->timer());
    shell.runFor(3600);
    EXPECT_EQ(storedCount(), 0u);
    EXPECT_TRUE(logLines("save").empty());

    MenuBar::Menu menu = shell.openMenu();
    item(menu, "Not saved yet \u00B7 saves at restart");
    const MenuBar::MenuItem& timed = item(menu, "Timed snapshots");
    ASSERT_FALSE(timed.submenu.empty());
    EXPECT_EQ(timed.submenu[0].title, "Off");
    EXPECT_TRUE(timed.submenu[0].checked);
}

TEST_F(LaunchTest, ANegativeIntervalMeansOff) {
    startNotes();
    shell.integers["autosaveMinutes"] = -5;
    launch();
    EXPECT_TRUE(shell.timers.empty());
    shell.runFor(3600);
    EXPECT_EQ(storedCount(), 0u);
    MenuBar::Menu menu = shell.openMenu();
    item(menu, "Not saved yet \u00B7 saves at restart");
    for (const MenuBar::MenuItem& choice : item(menu, "Timed snapshots").submenu)
        EXPECT_FALSE(choice.checked) << choice.title;
}

TEST_F(LaunchTest, WithTimedSnapshotsOnTheFirstComesAMinuteAfterLaunchThenEveryInterval) {
    startNotes();
    shell.integers["autosaveMinutes"] = 15;
    double launchedAt = desktop.now();
    launch();
    ASSERT_EQ(shell.liveTimers().size(), 1u);
    EXPECT_EQ(shell.liveTimers()[0]->interval, 900.0);
    EXPECT_EQ(shell.liveTimers()[0]->nextTick, launchedAt + 900.0) << "the first tick is one interval away";
    EXPECT_THAT(shell.pendingCalls(), ElementsAre(launchedAt + 60.0));

    shell.runFor(59);
    EXPECT_TRUE(logLines("save").empty());
    shell.runFor(1);
    EXPECT_THAT(logLines("save"), ElementsAre("save (auto): 1 apps \u00B7 1 windows"));
    ASSERT_EQ(storedCount(), 1u);
    EXPECT_EQ(Store::all()[0].snapshot.reason, "auto");
    EXPECT_EQ(delegate->lastSaved(), Store::all()[0].snapshot.date);

    shell.runFor(840);  // the timer's first tick, 900 s after launch
    EXPECT_THAT(logLines("save"), ElementsAre("save (auto): 1 apps \u00B7 1 windows",
                                              "save (auto): 1 apps \u00B7 1 windows \u2014 unchanged, skipped"));
    EXPECT_EQ(shell.liveTimers()[0]->ticks, 1);
}

TEST_F(LaunchTest, ChoosingFifteenArmsA900SecondTimerAndOffRemovesIt) {
    launch();
    MenuBar::Menu menu = shell.openMenu();
    const auto& choices = item(menu, "Timed snapshots").submenu;
    ASSERT_EQ(choices.size(), 5u);
    shell.runFor(100);
    shell.choose(choices[2]);
    EXPECT_EQ(shell.integers["autosaveMinutes"], 15);
    ASSERT_EQ(shell.liveTimers().size(), 1u);
    auto fifteen = shell.liveTimers()[0];
    EXPECT_EQ(fifteen->interval, 900.0);
    EXPECT_EQ(fifteen->nextTick, desktop.now() + 900.0) << "the new interval starts from the choice";
    EXPECT_EQ(delegate->timer(), fifteen);

    shell.choose(choices[0]);
    EXPECT_EQ(shell.integers["autosaveMinutes"], 0);
    EXPECT_FALSE(fifteen->valid);
    EXPECT_TRUE(shell.liveTimers().empty());
    EXPECT_FALSE(delegate->timer());
}

TEST_F(LaunchTest, ANewIntervalReplacesTheTimerInsteadOfAddingOne) {
    launch();
    delegate->setAutosave(5);
    delegate->setAutosave(30);
    delegate->setAutosave(30);
    ASSERT_EQ(shell.timers.size(), 3u);
    ASSERT_EQ(shell.liveTimers().size(), 1u);
    EXPECT_EQ(shell.liveTimers()[0]->interval, 1800.0);
}

TEST_F(LaunchTest, TimerAndLaunchCallbackDoNothingOnceTheDelegateIsGone) {
    startNotes();
    shell.integers["autosaveMinutes"] = 5;
    launch();
    delegate.reset();
    shell.runFor(3600);
    EXPECT_EQ(storedCount(), 0u);
    EXPECT_TRUE(logLines("save").empty());
}

TEST_F(LaunchTest, AnIntervalThatWouldFireWithoutPauseIsIgnored) { expectIgnored(153722867280912930); }

TEST_F(LaunchTest, AnIntervalThatWouldOverflowIsIgnoredInsteadOfStoppingTheProcess) {
    expectIgnored(std::numeric_limits<std::int64_t>::max());
}

TEST_F(LaunchTest, AMinuteMoreThanADayIsIgnored) { expectIgnored(1441); }

TEST_F(LaunchTest, AnIntervalOfADayIsStillHonoured) {
    shell.integers["autosaveMinutes"] = 1440;
    launch();
    ASSERT_EQ(shell.liveTimers().size(), 1u);
    EXPECT_EQ(shell.liveTimers()[0]->interval, 86400.0);
    item(shell.openMenu(), "Not saved yet \u00B7 saves every 1440 min and at restart");
    EXPECT_TRUE(logLines("settings").empty());
}

TEST_F(LaunchTest, TheStateIsOnlyTouchedOnTheMainThread) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            std::thread other([this] { delegate->save("manual"); });
            other.join();
        },
        "touched off the main thread");
}

}  // namespace
}  // namespace tarnwick::testing
