// The save operation and the power-off save.
#include "app_fixture.h"

#include <gmock/gmock.h>

namespace tarnwick::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SaveTest : public AppTest {};

TEST_F(SaveTest, CapturesStoresLogsAndThenRecordsTheDate) {
    startNotes();
    bool completed = false;
    delegate->save("manual", [&] {
        completed = true;
        EXPECT_FALSE(delegate->busy()) << "the completion comes after the state is updated";
    });
    EXPECT_EQ(delegate->busy(), "Saving\u2026");
    EXPECT_FALSE(completed);
    shell.settle();

    EXPECT_TRUE(completed);
    EXPECT_FALSE(delegate->busy());
    ASSERT_EQ(storedCount(), 1u);
    Snapshot stored = Store::all()[0].snapshot;
    EXPECT_EQ(stored.reason, "manual");
    EXPECT_EQ(delegate->lastSaved(), stored.date);
    EXPECT_THAT(logLines("save"), ElementsAre("save (manual): 1 apps \u00B7 1 windows"));
}

TEST_F(SaveTest, AnUnchangedSessionIsSkippedButStillCountsAsSaved) {
    startNotes();
    delegate->save("manual");
    shell.settle();
    Date first = *delegate->lastSaved();
    shell.runFor(120);
    delegate->save("auto");
    shell.settle();

    EXPECT_EQ(storedCount(), 1u);
    EXPECT_THAT(logLines("save"), ElementsAre("save (manual): 1 apps \u00B7 1 windows",
                                              "save (auto): 1 apps \u00B7 1 windows \u2014 unchanged, skipped"));
    EXPECT_EQ(*delegate->lastSaved(), first + std::chrono::seconds(120));
}

TEST_F(SaveTest, AFailedSaveIsLoggedAndLeavesTheLastSaveAlone) {
    startNotes();
    delegate->save("manual");
    shell.settle();
    Date first = *delegate->lastSaved();
    // The folder deleted while the program runs: it is not made again.
    std::filesystem::remove_all(supportDir());
    shell.runFor(120);
    bool completed = false;
    delegate->save("auto", [&] { completed = true; });
    shell.settle();

    EXPECT_TRUE(completed);
    EXPECT_FALSE(delegate->busy());
    EXPECT_EQ(delegate->lastSaved(), first) << "nothing was saved at the second save";
    EXPECT_THAT(logLines("save failed: "),
                ElementsAre("save failed: could not create a temporary file in " + supportDir().string() +
                            ": No such file or directory"));
    EXPECT_FALSE(std::filesystem::exists(supportDir()));
}

TEST_F(SaveTest, ASaveIntoAFolderThatIsAFileFailsAndTheMenuStillSaysNotSavedYet) {
    startNotes();
    launch();
    std::filesystem::remove_all(supportDir());
    writeText(supportDir(), "not a folder");
    delegate->save("manual");
    shell.settle();

    EXPECT_FALSE(delegate->busy());
    EXPECT_FALSE(delegate->lastSaved());
    item(shell.openMenu(), "Not saved yet \u00B7 saves at restart");
    EXPECT_THAT(logLines("save failed: "),
                ElementsAre("save failed: could not create a temporary file in " + supportDir().string() +
                            ": Not a directory"));
    EXPECT_EQ(readText(supportDir()), "not a folder");
}

TEST_F(SaveTest, ASaveDuringASaveIsDroppedSilently) {
    startNotes();
    delegate->save("manual");
    bool secondCompleted = false;
    delegate->save("auto", [&] { secondCompleted = true; });
    delegate->saveNow();
    shell.settle();

    EXPECT_EQ(shell.workRun(), 1);
    EXPECT_FALSE(secondCompleted);
    EXPECT_THAT(logLines("save"), ElementsAre("save (manual): 1 apps \u00B7 1 windows"));
    EXPECT_EQ(storedCount(), 1u);
}

TEST_F(SaveTest, ASaveDuringARestoreIsDroppedSilently) {
    startNotes();
    Snapshot saved = place(0);
    delegate->restore(saved);
    ASSERT_EQ(delegate->busy(), "Restoring\u2026");
    delegate->save("manual");
    shell.settle();

    EXPECT_THAT(logLines("save"), IsEmpty());
    EXPECT_EQ(storedCount(), 1u) << "only the snapshot placed by the test";
    EXPECT_THAT(logLines("restore"), ::testing::SizeIs(1));
}

TEST_F(SaveTest, ThePowerOffSaveWaitsForItsSnapshot) {
    startNotes();
    launch();
    double announced = desktop.now();
    shell.announcePowerOff();

    ASSERT_EQ(shell.waits.size(), 1u);
    EXPECT_TRUE(shell.waits[0].signalled);
    EXPECT_EQ(shell.waits[0].started, announced);
    ASSERT_EQ(storedCount(), 1u) << "written before the wait returned";
    EXPECT_EQ(Store::all()[0].snapshot.reason, "shutdown");
    EXPECT_THAT(logLines("save"), ElementsAre("save (shutdown): 1 apps \u00B7 1 windows"));
    EXPECT_FALSE(delegate->busy()) << "the power-off save neither sets nor clears busy";
    shell.settle();
    EXPECT_FALSE(delegate->lastSaved()) << "and leaves the last save's date alone";
}

TEST_F(SaveTest, ThePowerOffLineNeverSaysUnchanged) {
    startNotes();
    launch();
    delegate->save("manual");
    shell.settle();
    shell.announcePowerOff();

    EXPECT_EQ(storedCount(), 1u) << "the store skipped the unchanged session";
    EXPECT_THAT(logLines("save"),
                ElementsAre("save (manual): 1 apps \u00B7 1 windows", "save (shutdown): 1 apps \u00B7 1 windows"));
}

TEST_F(SaveTest, PowerOffDuringASaveTakesNoSnapshot) {
    startNotes();
    launch();
    delegate->save("manual");
    shell.announcePowerOff();
    shell.settle();

    EXPECT_TRUE(shell.waits.empty()) << "the main thread was not held";
    EXPECT_THAT(logLines("save (shutdown)"), IsEmpty());
    ASSERT_EQ(storedCount(), 1u);
    EXPECT_EQ(Store::all()[0].snapshot.reason, "manual");
}

TEST_F(SaveTest, PowerOffDuringARestoreTakesNoSnapshot) {
    startNotes();
    launch();
    Snapshot saved = place(-5);
    delegate->restore(saved);
    shell.announcePowerOff();
    shell.settle();

    EXPECT_TRUE(shell.waits.empty());
    EXPECT_THAT(logLines("save (shutdown)"), IsEmpty());
    EXPECT_EQ(storedCount(), 1u);
}

TEST_F(SaveTest, PowerOffReleasesTheMainThreadAfterTenSecondsWhenCaptureHangs) {
    startNotes();
    startHungBrowser();
    launch();
    double announced = desktop.now();
    shell.announcePowerOff();

    ASSERT_EQ(shell.waits.size(), 1u);
    EXPECT_FALSE(shell.waits[0].signalled);
    EXPECT_EQ(shell.waits[0].returnedAt, announced + 10.0);

    // The queued work goes on by itself and still stores its snapshot.
    shell.settle();
    EXPECT_THAT(logLines("save"), ElementsAre("save (shutdown): 2 apps \u00B7 1 windows"));
    EXPECT_EQ(storedCount(), 1u);
}

}  // namespace
}  // namespace tarnwick::testing
