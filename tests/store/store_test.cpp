// Store: saving with the unchanged test, listing, the pre-boot rule and pruning.
#include "store_fixture.h"

#include "store/boot_time.h"
#include "store/signing.h"

#include <algorithm>

namespace tarnwick::testing {
namespace {

std::vector<std::string> fileNamesOf(const std::vector<Date>& dates) {
    std::vector<std::string> names;
    for (Date date : dates) names.push_back(Store::fileName(date));
    std::sort(names.begin(), names.end());
    return names;
}

TEST_F(StoreTest, BootTimeIsKnownOnThisSystem) {
    auto boot = readBootTime();
    ASSERT_TRUE(boot);
    EXPECT_GT(*boot, Date{});
    EXPECT_LT(*boot, std::chrono::system_clock::now());
}

TEST_F(StoreTest, FileNameIsTheLocalDate) {
    std::time_t t = 1773480413;  // 2026-03-14T09:26:53Z
    std::tm local{};
    localtime_r(&t, &local);
    char expected[64];
    std::strftime(expected, sizeof expected, "%Y-%m-%d_%H-%M-%S.json", &local);
    EXPECT_EQ(Store::fileName(Date{std::chrono::seconds{t}} + std::chrono::milliseconds(900)), expected);
}

TEST_F(StoreTest, SaveIntoEmptyFolderWritesOneFile) {
    EXPECT_TRUE(Store::save(session(afterBoot(0))));
    auto entries = Store::all();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].url, supportDir() / Store::fileName(afterBoot(0)));
    EXPECT_TRUE(sameSnapshot(entries[0].snapshot, session(afterBoot(0))));
    EXPECT_EQ(logText(), "");
}

TEST_F(StoreTest, SameAppsTwiceAfterBootSkipsTheSecond) {
    EXPECT_TRUE(Store::save(session(afterBoot(0))));
    Snapshot again = session(afterBoot(60));
    again.reason = "auto";
    again.frontmost = "com.apple.Notes";
    EXPECT_FALSE(Store::save(again));
    EXPECT_EQ(names(), fileNamesOf({afterBoot(0)}));
    EXPECT_EQ(logText(), "");
}

TEST_F(StoreTest, WriteSaysWhetherItWroteOrFoundTheSessionUnchanged) {
    std::string why = "untouched";
    EXPECT_EQ(Store::write(session(afterBoot(0)), &why), Store::Saved::written);
    EXPECT_EQ(Store::write(session(afterBoot(60)), &why), Store::Saved::unchanged);
    EXPECT_EQ(why, "untouched") << "a reason is given only for a failure";
    EXPECT_EQ(names().size(), 1u);
    EXPECT_EQ(logText(), "") << "neither is logged";
}

TEST_F(StoreTest, SameAppsAsAPreBootSnapshotAreWritten) {
    place(session(beforeBoot(60)));
    EXPECT_TRUE(Store::save(session(afterBoot(0))));
    EXPECT_EQ(names(), fileNamesOf({beforeBoot(60), afterBoot(0)}));
}

TEST_F(StoreTest, AnyChangeInTheAppsIsWritten) {
    EXPECT_TRUE(Store::save(session(afterBoot(0))));
    EXPECT_TRUE(Store::save(session(afterBoot(1), 1)));  // one window moved by one point

    Snapshot withTab = session(afterBoot(2), 1);
    withTab.apps.push_back(AppState{"Safari", "com.apple.Safari", "/Applications/Safari.app", AppKind::safari, false,
                                    {}, {ScriptedWindow{std::nullopt, {"https://a.example/"}, 1}}});
    EXPECT_TRUE(Store::save(withTab));
    Snapshot moreTabs = withTab;
    moreTabs.date = afterBoot(3);
    moreTabs.apps[1].scripted[0].items.push_back("https://b.example/");  // a tab added
    EXPECT_TRUE(Store::save(moreTabs));

    Snapshot reordered = moreTabs;
    reordered.date = afterBoot(4);
    std::swap(reordered.apps[0], reordered.apps[1]);  // same apps, another order
    EXPECT_TRUE(Store::save(reordered));
    EXPECT_EQ(Store::all().size(), 5u);
}

TEST_F(StoreTest, OnlyTheNewestSnapshotIsComparedWith) {
    EXPECT_TRUE(Store::save(session(afterBoot(0))));
    EXPECT_TRUE(Store::save(session(afterBoot(1), 5)));
    EXPECT_TRUE(Store::save(session(afterBoot(2))));  // equal to an older one only
    EXPECT_EQ(Store::all().size(), 3u);
}

TEST_F(StoreTest, ANewestFileReplacedOrAddedByAnotherWriterIsComparedAsItIsNow) {
    EXPECT_TRUE(Store::save(session(afterBoot(0))));
    // The file just written is rewritten in place with other apps.
    place(session(afterBoot(0), 1234.5));
    EXPECT_FALSE(Store::save(session(afterBoot(60), 1234.5)));
    // A newer file from elsewhere.
    place(session(afterBoot(120), 7));
    EXPECT_FALSE(Store::save(session(afterBoot(180), 7)));
    EXPECT_EQ(names(), fileNamesOf({afterBoot(0), afterBoot(120)}));
}

TEST_F(StoreTest, ZeroAndMinusZeroAreTheSameFrame) {
    EXPECT_TRUE(Store::save(session(afterBoot(0), 0.0)));
    EXPECT_FALSE(Store::save(session(afterBoot(60), -0.0)));
    EXPECT_EQ(names(), fileNamesOf({afterBoot(0)}));
}

TEST_F(StoreTest, TwoSavesInTheSameSecondLeaveOneFileWithTheSecond) {
    Date second = afterBoot(0);
    EXPECT_TRUE(Store::save(session(second + std::chrono::milliseconds(100))));
    EXPECT_TRUE(Store::save(session(second + std::chrono::milliseconds(700), 42)));
    EXPECT_EQ(names(), fileNamesOf({second}));
    auto entries = Store::all();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].snapshot.apps[0].windows[0].frame->x, 42);
}

TEST_F(StoreTest, ThirteenthSaveKeepsTheTenNewest) {
    std::vector<Date> dates;
    for (int i = 0; i < 12; ++i) dates.push_back(afterBoot(i)), place(session(afterBoot(i), i));
    EXPECT_TRUE(Store::save(session(afterBoot(12), 12)));
    dates.push_back(afterBoot(12));
    EXPECT_EQ(names(), fileNamesOf(std::vector<Date>(dates.end() - 10, dates.end())));
}

TEST_F(StoreTest, FifteenWithSixPreBootKeepTheTenNewestWhichHoldTheNewestPreBootOne) {
    std::vector<Date> kept;
    for (int i = 0; i < 6; ++i) place(session(beforeBoot(600 - i), i));
    kept.push_back(beforeBoot(600 - 5));
    for (int i = 0; i < 9; ++i) place(session(afterBoot(i), i)), kept.push_back(afterBoot(i));
    ASSERT_EQ(names().size(), 15u);
    Store::prune();
    // Only nine are from after the boot, so the newest pre-boot snapshot is one of
    // the ten newest itself and nothing older stays beside it.
    EXPECT_EQ(names(), fileNamesOf(kept));
    EXPECT_EQ(Store::beforeBoot()->date, beforeBoot(600 - 5));
}

TEST_F(StoreTest, PruneKeepsThePreBootSnapshotBeyondTheTenNewest) {
    std::vector<Date> kept;
    for (int i = 0; i < 6; ++i) place(session(beforeBoot(600 - i), i));
    for (int i = 0; i < 12; ++i) place(session(afterBoot(i), i));
    for (int i = 2; i < 12; ++i) kept.push_back(afterBoot(i));
    kept.push_back(beforeBoot(600 - 5));
    Store::prune();
    EXPECT_EQ(names(), fileNamesOf(kept));
}

TEST_F(StoreTest, PruneOfTenOrFewerDeletesNothing) {
    for (int i = 0; i < 10; ++i) place(session(afterBoot(i), i));
    Store::prune();
    EXPECT_EQ(names().size(), 10u);
}

TEST_F(StoreTest, StrayAndCorruptFilesAreIgnoredAndSurvivePruning) {
    writeText(supportDir() / "notes.txt", "keep me");
    writeText(supportDir() / "x.json", "{ not json");
    writeText(supportDir() / "y.JSON", *encodeSnapshot(session(afterBoot(500))));
    for (int i = 0; i < 14; ++i) {
        Store::save(session(afterBoot(i), i));
        auto entries = Store::all();
        EXPECT_EQ(entries.size(), std::min(i + 1, 10));
        for (const auto& entry : entries) EXPECT_NE(entry.url.filename(), "x.json");
    }
    auto left = names();
    EXPECT_EQ(left.size(), 13u);
    EXPECT_TRUE(std::count(left.begin(), left.end(), "notes.txt"));
    EXPECT_TRUE(std::count(left.begin(), left.end(), "x.json"));
    EXPECT_TRUE(std::count(left.begin(), left.end(), "y.JSON"));
    EXPECT_EQ(readText(supportDir() / "notes.txt"), "keep me");
    EXPECT_EQ(readText(supportDir() / "x.json"), "{ not json");
}

TEST_F(StoreTest, ListingSortsByTheDateInsideNotTheFileName) {
    Snapshot early = session(afterBoot(0), 1), late = session(afterBoot(100), 2), middle = session(afterBoot(50), 3);
    place(early);
    place(middle);
    writeText(supportDir() / "0000-late.json", *encodeSnapshot(late));
    writeText(supportDir() / "9999-early.json", *encodeSnapshot(early));
    std::filesystem::remove(supportDir() / Store::fileName(early.date));
    auto entries = Store::all();
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].url.filename(), "0000-late.json");
    EXPECT_EQ(entries[1].snapshot.date, middle.date);
    EXPECT_EQ(entries[2].url.filename(), "9999-early.json");
}

TEST_F(StoreTest, BeforeBootIsNoneWhenEverySnapshotIsNewer) {
    for (int i = 0; i < 3; ++i) place(session(afterBoot(i), i));
    EXPECT_EQ(Store::beforeBoot(), std::nullopt);
    EXPECT_EQ(Store::beforeBoot(Store::all()), nullptr);
}

TEST_F(StoreTest, BeforeBootIsTheNewestPreBootSnapshot) {
    place(session(beforeBoot(300), 1));
    place(session(beforeBoot(200), 2));
    place(session(afterBoot(0), 3));
    auto found = Store::beforeBoot();
    ASSERT_TRUE(found);
    EXPECT_EQ(found->date, beforeBoot(200));
    EXPECT_EQ(found->apps[0].windows[0].frame->x, 2);

    // Found in a listing already read, it is that listing's own entry.
    auto listed = Store::all();
    const Store::Entry* entry = Store::beforeBoot(listed);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry, &listed[1]);
    EXPECT_EQ(entry->snapshot.date, beforeBoot(200));
}

TEST_F(StoreTest, MissingFolderListsNothing) {
    std::filesystem::remove_all(supportDir());
    EXPECT_TRUE(Store::all().empty());
    EXPECT_EQ(Store::beforeBoot(), std::nullopt);
    Store::prune();
}

TEST_F(StoreTest, SnapshotFilesAreWrittenInTheFileForm) {
    Snapshot s = session(afterBoot(0));
    EXPECT_TRUE(Store::save(s));
    // Signed on Linux, so that reading it back knows it for this user's own.
    EXPECT_EQ(readText(supportDir() / Store::fileName(s.date)), *encodeSnapshot(s, Signing::signatureOf(s)));
}

}  // namespace
}  // namespace tarnwick::testing
