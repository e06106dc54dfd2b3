// Saves killed at random moments never leave a broken file or lose a snapshot that pruning kept.
#include "store_fixture.h"

#include "model/unique_fd.h"

#include <csignal>
#include <random>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace tarnwick::testing {
namespace {

using CrashSafetyTest = StoreTest;

// The index a test snapshot was saved under, from its date.
int64_t indexOf(const Snapshot& s, Date base) {
    return std::chrono::duration_cast<std::chrono::seconds>(s.date - base).count();
}

TEST_F(CrashSafetyTest, SavesKilledAtRandomMoments) {
    const Date base = afterBoot(0);
    std::mt19937_64 random(7);
    int64_t next = 0;      // the first index the next child saves
    int64_t lastDone = -1; // the newest index whose save is known to have returned
    std::set<int64_t> done;  // every index whose save returned
    int kills = 0, killedMidSave = 0;

    for (int round = 0; round < 200; ++round) {
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        UniqueFd readEnd(fds[0]), writeEnd(fds[1]);
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            readEnd.reset();
            for (int64_t i = next; i < next + 100000; ++i) {
                int64_t started = 2 * i, finished = 2 * i + 1;
                if (!writeAll(writeEnd.get(), {reinterpret_cast<char*>(&started), sizeof started})) _exit(2);
                Store::save(session(base + std::chrono::seconds(i), static_cast<double>(i)));
                if (!writeAll(writeEnd.get(), {reinterpret_cast<char*>(&finished), sizeof finished})) _exit(2);
            }
            _exit(0);
        }
        writeEnd.reset();

        int64_t lastStarted = next - 1, message = 0;
        auto take = [&](int64_t received) {
            if (received % 2 == 0) lastStarted = received / 2;
            else lastDone = received / 2, done.insert(received / 2);
        };
        // Progress is awaited, not assumed: a machine slowed down by sanitizers or
        // other tests still completes some saves before the kill.
        const auto saves = static_cast<int64_t>(random() % 4);
        for (int64_t finished = 0; finished < saves;) {
            ASSERT_EQ(read(readEnd.get(), &message, sizeof message), static_cast<ssize_t>(sizeof message));
            take(message);
            if (message % 2 == 1) ++finished;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        ASSERT_EQ(kill(pid, SIGKILL), 0);
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFSIGNALED(status));
        ++kills;

        while (read(readEnd.get(), &message, sizeof message) == sizeof message) take(message);
        if (lastStarted > lastDone) ++killedMidSave;

        // Every snapshot file in the folder decodes...
        size_t jsonFiles = 0;
        for (const auto& name : names()) {
            if (std::filesystem::path(name).extension() != ".json") continue;
            ++jsonFiles;
            std::string error;
            ASSERT_TRUE(decodeSnapshot(readText(supportDir() / name), &error)) << name << ": " << error;
        }
        auto entries = Store::all();
        ASSERT_EQ(entries.size(), jsonFiles);
        // ...each holding what its save wrote (a save killed between its rename and
        // its prune leaves one file more; the next save that completes prunes it)...
        const int64_t keep = static_cast<int64_t>(Store::keep);
        std::set<int64_t> present;
        for (const auto& entry : entries) {
            int64_t index = indexOf(entry.snapshot, base);
            present.insert(index);
            EXPECT_LE(index, lastStarted);
            EXPECT_EQ(entry.snapshot.apps[0].windows[0].frame->x, static_cast<double>(index));
        }
        // ...and no completed save is lost while fewer than ten newer ones exist.
        // (A save killed before its rename rightly leaves no file.)
        for (auto it = done.lower_bound(lastStarted - keep + 1); it != done.end(); ++it)
            ASSERT_TRUE(present.count(*it)) << "snapshot " << *it << " lost in round " << round << " (last done "
                                            << lastDone << ", last started " << lastStarted << ", files: "
                                            << ::testing::PrintToString(names()) << ")";
        next = lastStarted + 1;
    }
    EXPECT_EQ(kills, 200);
    // One save that completes prunes back to the ten newest.
    ASSERT_TRUE(Store::save(session(base + std::chrono::seconds(next), static_cast<double>(next))));
    EXPECT_EQ(Store::all().size(), Store::keep);
    EXPECT_EQ(Store::all().front().snapshot.date, base + std::chrono::seconds(next));
    EXPECT_GT(lastDone, 20) << "the children hardly saved anything";
    // The random delays must have caught saves half-way at least sometimes.
    EXPECT_GT(killedMidSave, 10);
}

}  // namespace
}  // namespace tarnwick::testing
