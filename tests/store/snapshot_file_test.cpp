// readSnapshotFile: what is read, and what is refused without reading it.
#include "store/snapshot_file.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarnwick::testing {
namespace {

// A file of `size` bytes, all blanks but the last, "x".
std::filesystem::path fileOf(const TempDir& dir, const std::string& name, size_t size) {
    auto path = dir.path() / name;
    std::string bytes(size, ' ');
    bytes.back() = 'x';
    writeText(path, bytes);
    return path;
}

TEST(SnapshotFile, AFileOfExactlyTheLimitIsReadWhole) {
    TempDir dir;
    auto path = fileOf(dir, "limit.json", maxSnapshotFileSize);
    std::string buffer;
    FileProblem problem;
    auto length = readSnapshotFile(path, buffer, 64, &problem);
    ASSERT_TRUE(length) << problem.why;
    EXPECT_EQ(*length, maxSnapshotFileSize);
    EXPECT_EQ(buffer[*length - 1], 'x');
    EXPECT_GE(buffer.size(), *length + 64) << "the padding follows the text";
}

TEST(SnapshotFile, OneByteMoreIsRefusedUnread) {
    TempDir dir;
    auto path = fileOf(dir, "over.json", maxSnapshotFileSize + 1);
    std::string buffer;
    FileProblem problem;
    EXPECT_FALSE(readSnapshotFile(path, buffer, 64, &problem));
    EXPECT_TRUE(problem.refused);
    EXPECT_EQ(problem.why, "larger than 64 MiB");
    EXPECT_LT(buffer.size(), size_t{4096}) << "nothing was read";
}

TEST(SnapshotFile, APipeAFolderAndADeviceAreNotRegularFiles) {
    TempDir dir;
    auto fifo = dir.path() / "pipe.json";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (const std::filesystem::path& path : {fifo, dir.path(), std::filesystem::path("/dev/zero")}) {
        std::string buffer;
        FileProblem problem;
        EXPECT_FALSE(readSnapshotFile(path, buffer, 64, &problem)) << path;
        EXPECT_TRUE(problem.refused) << path;
        EXPECT_EQ(problem.why, "not a regular file") << path;
    }
}

TEST(SnapshotFile, AMissingFileIsASystemErrorNotARefusal) {
    TempDir dir;
    std::string buffer;
    FileProblem problem;
    EXPECT_FALSE(readSnapshotFile(dir.path() / "nowhere.json", buffer, 64, &problem));
    EXPECT_FALSE(problem.refused);
    EXPECT_EQ(problem.why, "No such file or directory");
}

}  // namespace
}  // namespace tarnwick::testing
