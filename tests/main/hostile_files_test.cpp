// Snapshot files from outside that are not what they seem: a pipe, a device, a
// huge sparse file, a snapshot with a gigabyte of blanks after it. The real
// command line, as a process, must end promptly and in bounded memory.
#include "main/run_program.h"
#include "model/snapshot_json.h"
#include "store/store.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

namespace tarnwick::testing {
namespace {

using ::testing::HasSubstr;
using namespace std::chrono_literals;

const char* const kDesktop = R"({"date": "now", "home": "/Users/tester", "apps": [
  {"bundleID": "com.example.Editor", "bundlePath": "/Applications/Editor.app", "name": "Editor",
   "running": true, "windows": [{"title": "Draft", "frame": [0, 25, 800, 600]}]}]})";

// Well above what a program that reads a snapshot needs, well below what
// reading a gigabyte would take.
constexpr long memoryLimitKiB = 200 * 1024;
constexpr auto deadline = 10s;

class HostileFilesTest : public ::testing::Test {
protected:
    TempDir dir{"tarnwick-hostile"};
    std::filesystem::path snapshots() const { return dir.path() / "data" / "Tarnwick" / "snapshots"; }

    std::vector<std::string> environment() const {
        return {"TARNWICK_SIM_DESKTOP=" + std::string(kDesktop), "HOME=" + dir.path().string(),
                "XDG_DATA_HOME=" + (dir.path() / "data").string(), "XDG_STATE_HOME=" + (dir.path() / "state").string(),
                "XDG_CONFIG_HOME=" + (dir.path() / "config").string()};
    }
    Bounded sim(const std::vector<std::string>& arguments) {
        Bounded finished = runWithin(deadline, TARNWICK_SIM_PATH, arguments, environment());
        EXPECT_FALSE(finished.overran) << "still running after " << deadline.count() << " s: killed";
        EXPECT_LT(finished.maxResidentKiB, memoryLimitKiB) << "KiB at most";
        return finished;
    }
    // A sparse file of 100 GB: nothing on the disk, everything in st_size.
    void sparse(const std::filesystem::path& path) {
        int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::ftruncate(fd, off_t{100} * 1024 * 1024 * 1024), 0) << std::strerror(errno);
        ::close(fd);
    }
    // "--restore PATH" stopped abnormally with one line that names the file and says why.
    void expectRefused(const std::string& path, const std::string& why) {
        Bounded finished = sim({"--restore", path});
        EXPECT_TRUE(finished.stoppedAbnormally()) << finished.err;
        EXPECT_EQ(finished.out, "");
        EXPECT_EQ(finished.err, "tarnwick: " + path + " is not a readable snapshot: " + why + "\n");
    }
    static Snapshot recent() {
        Snapshot snapshot;
        snapshot.date = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()) - 1h;
        snapshot.reason = "manual";
        AppState app;
        app.name = "Editor";
        app.bundleID = "com.example.Editor";
        app.bundlePath = "/Applications/Editor.app";
        snapshot.apps.push_back(app);
        return snapshot;
    }
};

TEST_F(HostileFilesTest, APipeIsRefusedAtOnceInsteadOfWaitedOn) {
    auto fifo = dir.path() / "session.json";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    expectRefused(fifo.string(), "not a regular file");
}

TEST_F(HostileFilesTest, DevicesThatNeverEndAreRefused) {
    for (const char* device : {"/dev/zero", "/dev/urandom"}) {
        SCOPED_TRACE(device);
        expectRefused(device, "not a regular file");
    }
}

TEST_F(HostileFilesTest, AFolderIsRefused) { expectRefused(dir.path().string(), "not a regular file"); }

TEST_F(HostileFilesTest, AHugeSparseFileIsRefusedWithoutReadingIt) {
    auto huge = dir.path() / "huge.json";
    sparse(huge);
    expectRefused(huge.string(), "larger than 64 MiB");
}

TEST_F(HostileFilesTest, ASnapshotFollowedByAGigabyteOfBlanksIsRefused) {
    auto padded = dir.path() / "padded.json";
    {
        int fd = ::open(padded.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        ASSERT_GE(fd, 0);
        std::string head = encodeSnapshot(recent()).value();
        ASSERT_EQ(::write(fd, head.data(), head.size()), static_cast<ssize_t>(head.size()));
        std::string blanks(std::size_t{1} << 20, ' ');
        for (int i = 0; i < 1024; ++i)
            ASSERT_EQ(::write(fd, blanks.data(), blanks.size()), static_cast<ssize_t>(blanks.size()));
        ::close(fd);
    }
    expectRefused(padded.string(), "larger than 64 MiB");
    std::filesystem::remove(padded);
}

// In the store's folder, a huge file named like a snapshot is passed over and
// named by the listing; the real snapshot beside it serves every mode.
TEST_F(HostileFilesTest, AHugeFileInTheStoreIsLeftAloneByListSaveAndRestore) {
    std::filesystem::create_directories(snapshots());
    Snapshot snapshot = recent();
    writeText(snapshots() / Store::fileName(snapshot.date), encodeSnapshot(snapshot).value());
    auto huge = snapshots() / "2099-01-01_00-00-00.json";
    sparse(huge);

    Bounded list = sim({"--list"});
    EXPECT_TRUE(list.exitedWith(0)) << list.err;
    EXPECT_THAT(list.out, HasSubstr("  1  " + Store::fileName(snapshot.date) + "  "));
    EXPECT_EQ(list.err, "tarnwick: 2099-01-01_00-00-00.json is not a readable snapshot; left as it is\n");

    Bounded latest = sim({"--restore", "latest"});
    EXPECT_TRUE(latest.exitedWith(0)) << latest.err;
    EXPECT_EQ(latest.out, "Restoring 1/1: Editor\nlaunched 0, windows 0, tabs 0\n");

    Bounded save = sim({"--save"});
    EXPECT_TRUE(save.exitedWith(0)) << save.err;
    EXPECT_THAT(save.out, HasSubstr("\nwrote " + snapshots().string() + "/"));

    struct stat info {};
    ASSERT_EQ(::stat(huge.c_str(), &info), 0) << "never deleted";
    EXPECT_EQ(info.st_size, off_t{100} * 1024 * 1024 * 1024);
}

}  // namespace
}  // namespace tarnwick::testing
