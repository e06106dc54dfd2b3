// The status menu's contents and its commands.
#include "app_fixture.h"

#include "app/texts.h"

#include <gmock/gmock.h>

namespace tarnwick::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// One row per item: "---" for a separator, else the title followed by what
// the item does, its key, tag, checkmark and a "disabled" mark.
std::vector<std::string> rows(const MenuBar::Menu& menu) {
    std::vector<std::string> out;
    for (const MenuBar::MenuItem& item : menu) {
        if (item.separator) {
            out.push_back("---");
            continue;
        }
        std::string row = item.title;
        if (item.command != MenuBar::Command::none) row += std::string(" ->") + MenuBar::commandName(item.command);
        if (!item.keyEquivalent.empty()) row += " [" + item.keyEquivalent + "]";
        if (item.command == MenuBar::Command::setAutosave || item.command == MenuBar::Command::restoreIndexed)
            row += " #" + std::to_string(item.tag);
        if (item.checked) row += " (on)";
        if (!item.enabled) row += " (disabled)";
        if (!item.submenu.empty()) row += " >" + std::to_string(item.submenu.size());
        out.push_back(row);
    }
    return out;
}

class StatusMenuTest : public AppTest {
protected:
    std::string shortDate(Date date) { return shell.shortDate(date); }
    std::string described(const Snapshot& snapshot) { return shortDate(snapshot.date) + " \u2014 " + snapshot.summary(); }

    // A snapshot file dated before the boot.
    Snapshot placeBeforeBoot() {
        Snapshot snapshot;
        snapshot.date = std::chrono::floor<std::chrono::seconds>(Store::bootTime()) - std::chrono::hours(3);
        snapshot.reason = "shutdown";
        snapshot.apps.push_back(
            AppState{"Mail", "com.apple.mail", "/System/Applications/Mail.app", AppKind::generic, false, {}, {}});
        writeText(supportDir() / Store::fileName(snapshot.date), *encodeSnapshot(snapshot));
        return snapshot;
    }
};

TEST_F(StatusMenuTest, AnEmptyStoreOffersNothingToRestore) {
    launch();
    EXPECT_THAT(rows(shell.openMenu()),
                ElementsAre("No snapshots yet (disabled)", "---", "Save snapshot now ->saveNow [s]",
                            "Not saved yet \u00B7 saves at restart (disabled)", "Timed snapshots >5", "---",
                            "Open at login ->toggleLogin (on)", "Show snapshots in Finder ->showFolder",
                            "Quit Tarnwick ->quit [q]"));
}

TEST_F(StatusMenuTest, TheTimedSnapshotsSubmenuOffersFiveIntervals) {
    launch();
    EXPECT_THAT(rows(item(shell.openMenu(), "Timed snapshots").submenu),
                ElementsAre("Off ->setAutosave #0 (on)", "Every 5 minutes ->setAutosave #5",
                            "Every 15 minutes ->setAutosave #15", "Every 30 minutes ->setAutosave #30",
                            "Every 60 minutes ->setAutosave #60"));
}

TEST_F(StatusMenuTest, OneSnapshotIsOfferedAsTheLatestWithoutTheOtherSubmenu) {
    Snapshot only = place(3);
    launch();
    EXPECT_THAT(rows(shell.openMenu()),
                ElementsAre("Restore latest snapshot ->restoreLatest", described(only) + " (disabled)", "---",
                            "Save snapshot now ->saveNow [s]",
                            "Last saved " + shortDate(only.date) + " \u00B7 saves at restart (disabled)",
                            "Timed snapshots >5", "---", "Open at login ->toggleLogin (on)",
                            "Show snapshots in Finder ->showFolder", "Quit Tarnwick ->quit [q]"));
}

TEST_F(StatusMenuTest, ABeforeBootSnapshotReplacesTheLatestEntry) {
    Snapshot old = placeBeforeBoot();
    Snapshot recent = place(3);
    launch();
    MenuBar::Menu menu = shell.openMenu();
    std::vector<std::string> shown = rows(menu);
    ASSERT_GE(shown.size(), 3u);
    EXPECT_EQ(shown[0], "Restore session from before restart ->restorePreBoot");
    EXPECT_EQ(shown[1], described(old) + " (disabled)");
    EXPECT_EQ(shown[2], "Restore other snapshot >2");
    for (const std::string& row : shown) EXPECT_EQ(row.find("Restore latest snapshot"), std::string::npos);
    EXPECT_THAT(rows(item(menu, "Restore other snapshot").submenu),
                ElementsAre(shortDate(recent.date) + " \u2014 1 apps \u00B7 1 windows ->restoreIndexed #0",
                            shortDate(old.date) + " (at shutdown) \u2014 1 apps \u00B7 0 windows ->restoreIndexed #1"));
}

TEST_F(StatusMenuTest, FortyFiveSnapshotsOfferTheThirtyNewest) {
    std::vector<Snapshot> placed;
    for (int minute = 0; minute < 45; ++minute) placed.push_back(place(minute));
    // Launching would prune; the menu reads whatever the store holds.
    MenuBar::Menu menu = delegate->menuNeedsUpdate();
    const auto& other = item(menu, "Restore other snapshot").submenu;
    ASSERT_EQ(other.size(), 30u);
    for (size_t i = 0; i < other.size(); ++i) {
        EXPECT_EQ(other[i].command, MenuBar::Command::restoreIndexed);
        EXPECT_EQ(other[i].tag, static_cast<std::int64_t>(i));
        EXPECT_TRUE(other[i].enabled);
        EXPECT_EQ(other[i].title, described(placed[44 - i]));
    }
}

TEST_F(StatusMenuTest, OnlyShutdownAndManualSnapshotsCarryAMark) {
    Snapshot automatic = place(1, "auto");
    Snapshot command = place(2, "cli");
    Snapshot shutdown = place(3, "shutdown");
    Snapshot manual = place(4, "manual");
    MenuBar::Menu menu = delegate->menuNeedsUpdate();
    std::vector<std::string> titles;
    for (const auto& entry : item(menu, "Restore other snapshot").submenu) titles.push_back(entry.title);
    EXPECT_THAT(titles, ElementsAre(shortDate(manual.date) + " (manual) \u2014 1 apps \u00B7 1 windows",
                                    shortDate(shutdown.date) + " (at shutdown) \u2014 1 apps \u00B7 1 windows",
                                    shortDate(command.date) + " \u2014 1 apps \u00B7 1 windows",
                                    shortDate(automatic.date) + " \u2014 1 apps \u00B7 1 windows"));
    // The describing line under "Restore latest snapshot" has no mark.
    EXPECT_EQ(rows(menu)[1], described(manual) + " (disabled)");
}

TEST_F(StatusMenuTest, WhileASaveRunsOnlyQuitIsEnabledAtTheTopLevel) {
    startNotes();
    place(1);
    place(2);
    launch();
    shell.loginStatus = MenuBar::LoginItemStatus::notRegistered;
    delegate->save("manual");
    MenuBar::Menu menu = shell.openMenu();
    ASSERT_GE(menu.size(), 2u);
    EXPECT_EQ(menu[0].title, "Saving\u2026");
    EXPECT_FALSE(menu[0].enabled);
    EXPECT_TRUE(menu[1].separator);
    std::vector<std::string> enabled;
    for (const auto& entry : menu)
        if (entry.hasAction() && entry.enabled) enabled.push_back(entry.title);
    EXPECT_THAT(enabled, ElementsAre("Quit Tarnwick"));
    // The submenus stay usable; their commands meet the busy guard instead.
    for (const auto& entry : item(menu, "Restore other snapshot").submenu) EXPECT_TRUE(entry.enabled);
    for (const auto& entry : item(menu, "Timed snapshots").submenu) EXPECT_TRUE(entry.enabled);
    EXPECT_TRUE(item(menu, "Restore other snapshot").enabled) << "holders without an action are left as they are";
    shell.settle();

    MenuBar::Menu idle = shell.openMenu();
    EXPECT_EQ(idle[0].title, "Restore latest snapshot");
    for (const auto& entry : idle) {
        if (entry.hasAction()) {
            EXPECT_TRUE(entry.enabled) << entry.title;
        }
    }
}

TEST_F(StatusMenuTest, AccessibilityItemOnlyWhenNotTrusted) {
    launch();
    for (const std::string& row : rows(shell.openMenu())) EXPECT_EQ(row.find("Grant"), std::string::npos);

    desktop.trusted = false;
    std::vector<std::string> shown = rows(shell.openMenu());
    EXPECT_THAT(std::vector<std::string>(shown.end() - 6, shown.end()),
                ElementsAre("---", "Grant Accessibility access\u2026 ->openAccessibility", "---",
                            "Open at login ->toggleLogin (on)", "Show snapshots in Finder ->showFolder",
                            "Quit Tarnwick ->quit [q]"));
}

TEST_F(StatusMenuTest, OnLinuxTheMenuNamesTheFileManagerAndANoteStandsForTheGrant) {
    shell.linuxWording = true;
    launch();
    std::vector<std::string> shown = rows(shell.openMenu());
    EXPECT_THAT(std::vector<std::string>(shown.end() - 3, shown.end()),
                ElementsAre("Open at login ->toggleLogin (on)", "Show snapshots in the file manager ->showFolder",
                            "Quit Tarnwick ->quit [q]"));
    for (const std::string& row : shown) EXPECT_EQ(row.find("window manager answers"), std::string::npos);

    // No window manager answers: nothing can be granted, the menu says why.
    desktop.trusted = false;
    shown = rows(shell.openMenu());
    EXPECT_THAT(std::vector<std::string>(shown.end() - 6, shown.end() - 3),
                ElementsAre("---", "Windows can't be placed: no window manager answers (disabled)", "---"));
}

TEST_F(StatusMenuTest, IntervalZeroSavesAtRestartWithOffChecked) {
    shell.integers["autosaveMinutes"] = 0;
    launch();
    MenuBar::Menu menu = shell.openMenu();
    item(menu, "Not saved yet \u00B7 saves at restart");
    std::vector<std::string> checked;
    for (const auto& choice : item(menu, "Timed snapshots").submenu)
        if (choice.checked) checked.push_back(choice.title);
    EXPECT_THAT(checked, ElementsAre("Off"));
}

TEST_F(StatusMenuTest, AnIntervalFromElsewhereIsShownButNotChecked) {
    shell.integers["autosaveMinutes"] = 7;
    Snapshot saved = place(1);
    launch();
    MenuBar::Menu menu = shell.openMenu();
    item(menu, "Last saved " + shortDate(saved.date) + " \u00B7 saves every 7 min and at restart");
    for (const auto& choice : item(menu, "Timed snapshots").submenu) EXPECT_FALSE(choice.checked) << choice.title;
}

TEST_F(StatusMenuTest, TheStatusLineFollowsTheSetting) {
    auto date = [this](Date d) { return shortDate(d); };
    Date saved = std::chrono::sys_days{std::chrono::year{2026} / 11 / 15} + std::chrono::minutes(23 * 60 + 56);
    EXPECT_EQ(shortDate(saved), "Sun 15 Nov, 23:56");
    EXPECT_EQ(MenuBar::statusLine(saved, 15, date), "Last saved Sun 15 Nov, 23:56 \u00B7 saves every 15 min and at restart");
    EXPECT_EQ(MenuBar::statusLine(std::nullopt, 0, date), "Not saved yet \u00B7 saves at restart");
    EXPECT_EQ(MenuBar::statusLine(std::nullopt, -3, date), "Not saved yet \u00B7 saves at restart");
    EXPECT_EQ(MenuBar::statusLine(std::nullopt, 1, date), "Not saved yet \u00B7 saves every 1 min and at restart");
}

TEST_F(StatusMenuTest, WhereTheDesktopCannotBeServedTheMenuSaysWhyFirstAndOffersNoSaveOrRestore) {
    startNotes();
    place(1);
    Snapshot newest = place(2);
    shell.linuxWording = true;
    shell.integers["autosaveMinutes"] = 5;
    desktop.trusted = false;
    auto limited = MenuBar::AppDelegate::make(shell, "Tarnwick cannot list or place windows in a Wayland session yet");
    limited->applicationDidFinishLaunching();
    shell.settle();
    MenuBar::Menu menu = shell.openMenu();
    EXPECT_THAT(rows(menu),
                ElementsAre("Tarnwick cannot list or place windows in a Wayland session yet (disabled)", "---",
                            "Restore latest snapshot ->restoreLatest (disabled)", described(newest) + " (disabled)",
                            "Restore other snapshot (disabled) >2", "---", "Save snapshot now ->saveNow [s] (disabled)",
                            "Last saved " + shortDate(newest.date) + " \u00B7 no saves on this desktop (disabled)",
                            "Timed snapshots >5", "---", "Open at login ->toggleLogin (on)",
                            "Show snapshots in the file manager ->showFolder", "Quit Tarnwick ->quit [q]"));
    for (const auto& entry : item(menu, "Restore other snapshot").submenu) EXPECT_FALSE(entry.enabled) << entry.title;
    for (const auto& entry : item(menu, "Timed snapshots").submenu) EXPECT_TRUE(entry.enabled) << entry.title;

    // Chosen all the same, by a tray that ignores the disabling, and by the
    // timer and the power-off: nothing is captured, stored or put back.
    shell.choose(item(menu, "Save snapshot now"));
    shell.choose(item(menu, "Restore latest snapshot"));
    shell.choose(item(menu, "Restore other snapshot").submenu.at(1));
    shell.runFor(20 * 60);
    EXPECT_EQ(storedCount(), 2u);
    EXPECT_THAT(logLines("save"), IsEmpty());
    EXPECT_THAT(logLines("restore"), IsEmpty());
    EXPECT_THAT(shell.alerts, IsEmpty());
    EXPECT_THAT(shell.liveTimers(), IsEmpty());
    EXPECT_FALSE(shell.powerOffObserved);
    EXPECT_FALSE(limited->busy());
    EXPECT_EQ(MenuBar::unavailableStatusLine(std::nullopt, [this](Date d) { return shortDate(d); }),
              "Not saved yet \u00B7 no saves on this desktop");
}

// --- Commands --------------------------------------------------------------------------

TEST_F(StatusMenuTest, SaveNowTakesAManualSnapshot) {
    startNotes();
    launch();
    shell.choose(item(shell.openMenu(), "Save snapshot now"));
    shell.settle();
    ASSERT_EQ(storedCount(), 1u);
    EXPECT_EQ(Store::all()[0].snapshot.reason, "manual");
}

TEST_F(StatusMenuTest, RestoreCommandsOnAnEmptyStoreDoNothing) {
    launch();
    delegate->restoreLatest();
    delegate->restorePreBoot();
    delegate->restoreIndexed(0);
    shell.settle();
    EXPECT_FALSE(delegate->busy());
    EXPECT_THAT(shell.alerts, IsEmpty());
    EXPECT_THAT(logLines("restore"), IsEmpty());
}

TEST_F(StatusMenuTest, RestoreLatestTakesTheNewestSnapshot) {
    place(1, "auto", 1);
    place(2, "auto", 2);
    desktop.install(appSpec("com.apple.Notes", "/System/Applications/Notes.app", "Notes"));
    launch();
    shell.choose(item(shell.openMenu(), "Restore latest snapshot"));
    shell.settle();
    ASSERT_EQ(shell.alerts.size(), 1u);
    EXPECT_EQ(shell.alerts[0].informative, "Launched 1 apps, put back 0 windows.");
    EXPECT_THAT(desktop.journal, ::testing::Contains("openApplication:/System/Applications/Notes.app"));
}

TEST_F(StatusMenuTest, RestorePreBootTakesTheSnapshotFromBeforeTheBoot) {
    placeBeforeBoot();
    place(2);
    desktop.install(appSpec("com.apple.mail", "/System/Applications/Mail.app", "Mail"));
    launch();
    shell.choose(item(shell.openMenu(), "Restore session from before restart"));
    shell.settle();
    EXPECT_THAT(desktop.journal, ::testing::Contains("openApplication:/System/Applications/Mail.app"));
    EXPECT_THAT(desktop.journal, ::testing::Not(::testing::Contains("openApplication:/System/Applications/Notes.app")));
}

TEST_F(StatusMenuTest, AnIndexedRestoreReadsTheStoreAtTheClick) {
    place(1);
    place(2);
    launch();
    MenuBar::Menu menu = shell.openMenu();
    MenuBar::MenuItem newestAtBuild = item(menu, "Restore other snapshot").submenu[0];
    // A snapshot of Mail arrives between the menu's opening and the click.
    Snapshot arrived;
    arrived.date = desktop.startDate + std::chrono::minutes(30);
    arrived.reason = "auto";
    arrived.apps.push_back(
        AppState{"Mail", "com.apple.mail", "/System/Applications/Mail.app", AppKind::generic, false, {}, {}});
    writeText(supportDir() / Store::fileName(arrived.date), *encodeSnapshot(arrived));
    desktop.install(appSpec("com.apple.mail", "/System/Applications/Mail.app", "Mail"));

    shell.choose(newestAtBuild);
    shell.settle();
    EXPECT_THAT(desktop.journal, ::testing::Contains("openApplication:/System/Applications/Mail.app"));
}

TEST_F(StatusMenuTest, AStaleIndexBeyondTheEndDoesNothing) {
    place(1);
    place(2);
    launch();
    MenuBar::MenuItem second = item(shell.openMenu(), "Restore other snapshot").submenu[1];
    std::filesystem::remove_all(supportDir());
    std::filesystem::create_directories(supportDir());
    place(3);
    shell.choose(second);
    shell.settle();
    EXPECT_FALSE(delegate->busy());
    EXPECT_THAT(shell.alerts, IsEmpty());
    EXPECT_THAT(logLines("restore"), IsEmpty());
}

TEST_F(StatusMenuTest, ANegativeIndexStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    place(1);
    EXPECT_DEATH(delegate->restoreIndexed(-1), "negative menu tag: -1");
}

TEST_F(StatusMenuTest, OpenAtLoginTogglesTheLoginItem) {
    launch();
    ASSERT_EQ(shell.loginStatus, MenuBar::LoginItemStatus::enabled);
    EXPECT_TRUE(item(shell.openMenu(), "Open at login").checked);
    shell.choose(item(shell.openMenu(), "Open at login"));
    EXPECT_EQ(shell.loginUnregistrations, 1);
    EXPECT_FALSE(item(shell.openMenu(), "Open at login").checked);
    shell.choose(item(shell.openMenu(), "Open at login"));
    EXPECT_EQ(shell.loginRegistrations, 2);
    EXPECT_TRUE(item(shell.openMenu(), "Open at login").checked);
    EXPECT_THAT(logLines("login item"), IsEmpty());
}

TEST_F(StatusMenuTest, ARefusedToggleIsLoggedOnlyAndTheCheckmarkShowsTheTruth) {
    launch();
    shell.loginStatus = MenuBar::LoginItemStatus::requiresApproval;
    shell.loginError = "The operation couldn\u2019t be completed.";
    shell.choose(item(shell.openMenu(), "Open at login"));
    EXPECT_EQ(shell.loginRegistrations, 2);
    EXPECT_THAT(logLines("login item"), ElementsAre("login item toggle: The operation couldn\u2019t be completed."));
    EXPECT_THAT(shell.alerts, IsEmpty());
    EXPECT_FALSE(item(shell.openMenu(), "Open at login").checked);
}

TEST_F(StatusMenuTest, GrantAccessibilityPromptsAndOpensTheSettingsPage) {
    desktop.trusted = false;
    launch();
    int promptsAtLaunch = desktop.calls("promptForAccessibilityTrust");
    shell.choose(item(shell.openMenu(), "Grant Accessibility access\u2026"));
    EXPECT_EQ(desktop.calls("promptForAccessibilityTrust"), promptsAtLaunch + 1);
    EXPECT_THAT(shell.openedURLs,
                ElementsAre("x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility"));
}

TEST_F(StatusMenuTest, ShowSnapshotsRevealsTheSnapshotFolder) {
    launch();
    shell.choose(item(shell.openMenu(), "Show snapshots in Finder"));
    EXPECT_THAT(shell.revealed, ElementsAre(supportDir().string()));
}

TEST_F(StatusMenuTest, QuitTerminatesWithoutASnapshot) {
    startNotes();
    launch();
    shell.choose(item(shell.openMenu(), "Quit Tarnwick"));
    shell.settle();
    EXPECT_EQ(shell.terminations, 1);
    EXPECT_EQ(storedCount(), 0u);
}

}  // namespace
}  // namespace tarnwick::testing
