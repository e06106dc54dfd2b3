// What else can stand in the snapshot folder: pipes, folders, links, files
// that cannot be read, a save's leftovers, files changed behind the store's
// back, and texts that are not UTF-8.
#include "store_fixture.h"

#include <gmock/gmock.h>

#include <chrono>
#include <fcntl.h>
#include <functional>
#include <future>
#include <sys/stat.h>
#include <unistd.h>

namespace tarnwick::testing {
namespace {

using ::testing::Contains;
using ::testing::Not;

class StoreFolderTest : public StoreTest {
protected:
    // Runs a store call that must not block: a call stuck opening the pipe is
    // freed by opening its other end, and the test fails.
    void returnsPromptly(const std::string& what, const std::function<void()>& call) {
        auto done = std::async(std::launch::async, call);
        if (done.wait_for(std::chrono::seconds(5)) == std::future_status::ready) return;
        ADD_FAILURE() << what << " blocked on the pipe";
        int writer = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (writer >= 0) ::close(writer);
        done.wait();
    }

    static bool isFifo(const std::filesystem::path& path) {
        struct stat info {};
        return ::lstat(path.c_str(), &info) == 0 && S_ISFIFO(info.st_mode);
    }

    // A temporary file as a save names it, last written `age` ago.
    static std::filesystem::path temporary(const std::string& suffix, std::chrono::seconds age) {
        auto path = supportDir() / (".2026-03-14_09-26-53.json." + suffix);
        writeText(path, "{ half a snapshot");
        auto when = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now() - age);
        struct timespec times[2] = {{when, 0}, {when, 0}};
        ::utimensat(AT_FDCWD, path.c_str(), times, 0);
        return path;
    }

    std::filesystem::path fifo = supportDir() / "x.json";
};

TEST_F(StoreFolderTest, APipeNamedLikeASnapshotIsNeverOpenedAndStays) {
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    place(session(beforeBoot(60), 1));
    for (int i = 0; i < 11; ++i) place(session(afterBoot(i), i));

    returnsPromptly("all", [] { EXPECT_EQ(Store::all().size(), 12u); });
    returnsPromptly("beforeBoot", [] { EXPECT_TRUE(Store::beforeBoot()); });
    returnsPromptly("prune", [] { Store::prune(); });
    returnsPromptly("save", [] { EXPECT_TRUE(Store::save(session(afterBoot(100), 100))); });

    EXPECT_TRUE(isFifo(fifo)) << "the pipe is left alone";
    EXPECT_EQ(Store::all().size(), 11u) << "ten newest and the pre-boot one";
}

TEST_F(StoreFolderTest, PruneRemovesStaleTemporaryFilesAndKeepsASaveInProgress) {
    auto stale = temporary("a1B2c3", std::chrono::hours(1));
    auto fresh = temporary("Zz9Yy8", std::chrono::seconds(5));
    // Not ours: another name shape, or not a regular file.
    auto foreign = supportDir() / ".notes.json.a1B2c3";
    writeText(foreign, "someone else's");
    auto folder = supportDir() / ".2026-03-14_09-26-54.json.qQ1wW2";
    std::filesystem::create_directory(folder);
    auto when = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now() - std::chrono::hours(1));
    struct timespec times[2] = {{when, 0}, {when, 0}};
    ::utimensat(AT_FDCWD, folder.c_str(), times, 0);

    Store::prune();

    EXPECT_FALSE(std::filesystem::exists(stale));
    EXPECT_TRUE(std::filesystem::exists(fresh));
    EXPECT_TRUE(std::filesystem::exists(foreign));
    EXPECT_TRUE(std::filesystem::exists(folder));

    // A save prunes too.
    auto another = temporary("k7L8m9", std::chrono::hours(2));
    EXPECT_TRUE(Store::save(session(afterBoot(0))));
    EXPECT_FALSE(std::filesystem::exists(another));
    EXPECT_TRUE(std::filesystem::exists(fresh));
}

TEST_F(StoreFolderTest, ALookPastEntriesThatCannotBeReadGoesOn) {
    // A folder named like a snapshot, closed to everyone, with a file inside.
    auto closed = supportDir() / "closed.json";
    std::filesystem::create_directory(closed);
    writeText(closed / "inside.json", *encodeSnapshot(session(afterBoot(900))));
    std::filesystem::permissions(closed, std::filesystem::perms::none);
    // A file no one may read (root still can: it holds no snapshot either way).
    auto locked = supportDir() / "locked.json";
    writeText(locked, "{ not a snapshot");
    std::filesystem::permissions(locked, std::filesystem::perms::none);
    // Links that lead nowhere, and one to a real snapshot, which counts.
    std::filesystem::create_symlink(supportDir() / "missing", supportDir() / "gone.json");
    std::filesystem::create_symlink(supportDir() / "loop.json", supportDir() / "loop.json");
    TempDir elsewhere("tarnwick-elsewhere");
    writeText(elsewhere.path() / "linked", *encodeSnapshot(session(afterBoot(-5), 99)));
    std::filesystem::create_symlink(elsewhere.path() / "linked", supportDir() / "linked.json");
    for (int i = 0; i < 12; ++i) place(session(afterBoot(i), i));

    EXPECT_EQ(Store::all().size(), 13u);
    Store::prune();
    auto entries = Store::all();
    EXPECT_EQ(entries.size(), 10u);
    EXPECT_TRUE(Store::save(session(afterBoot(50), 50)));
    EXPECT_EQ(Store::all().size(), 10u);
    for (const char* name : {"closed.json", "locked.json", "gone.json", "loop.json"})
        EXPECT_THAT(names(), Contains(name)) << name << " is left alone";

    std::filesystem::permissions(closed, std::filesystem::perms::owner_all);
    std::filesystem::permissions(locked, std::filesystem::perms::owner_all);
}

TEST_F(StoreFolderTest, AFileChangedAfterASaveCheckedItIsCheckedAgain) {
    Snapshot first = session(afterBoot(0), 1), second = session(afterBoot(10), 2);
    EXPECT_TRUE(Store::save(first));
    EXPECT_TRUE(Store::save(second));
    // The newest file broken in place: the newest readable one is now the first.
    auto newest = supportDir() / Store::fileName(second.date);
    writeText(newest, "{ broken in place");
    EXPECT_TRUE(Store::save(session(afterBoot(20), 2))) << "the second's apps differ from the first's";
    EXPECT_FALSE(Store::save(session(afterBoot(30), 2)));
    // Mended in place with a newer snapshot: that one is the newest now.
    writeText(newest, *encodeSnapshot(session(afterBoot(100), 7)));
    EXPECT_FALSE(Store::save(session(afterBoot(110), 7)));
    EXPECT_TRUE(Store::save(session(afterBoot(120), 2)));
    EXPECT_EQ(Store::all().size(), 4u);
}

TEST_F(StoreFolderTest, ASnapshotWithInvalidUtf8InEveryTextIsWrittenOnce) {
    const std::string bad = "caf\xE9 \xFF\xC3";
    Snapshot snapshot{afterBoot(0),
                      "manual" + bad,
                      "com.example." + bad,
                      {AppState{"Notes" + bad,
                                "com.example." + bad,
                                "/Applications/" + bad + ".app",
                                AppKind::generic,
                                false,
                                {WindowState{"Title" + bad, "file:///" + bad, Frame{0, 25, 800, 600}, false, false}},
                                {}},
                       AppState{"Browser" + bad,
                                "com.google.Chrome",
                                "/Applications/Chrome" + bad + ".app",
                                AppKind::chromium,
                                false,
                                {},
                                {ScriptedWindow{Frame{1, 2, 3, 4}, {"https://example.com/" + bad}, 1}}}}};
    EXPECT_TRUE(Store::save(snapshot));
    snapshot.date = afterBoot(60);
    EXPECT_FALSE(Store::save(snapshot)) << "the same session, as its file holds it";
    EXPECT_EQ(names().size(), 1u);

    Snapshot repaired = snapshot;
    makeTextsValidUtf8(repaired);
    EXPECT_TRUE(textsAreValidUtf8(repaired));
    EXPECT_EQ(repaired.apps[0].name, "Notes" "caf\xEF\xBF\xBD \xEF\xBF\xBD\xEF\xBF\xBD");
    auto stored = Store::all();
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_TRUE(sameList(stored[0].snapshot.apps, repaired.apps));
}

}  // namespace
}  // namespace tarnwick::testing
