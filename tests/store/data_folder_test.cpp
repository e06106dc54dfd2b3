// supportDir and prepareFolder.
#include "store/data_folder.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

namespace tarnwick::testing {
namespace {

TEST(DataFolder, SnapshotsLiveUnderTheDataFolderAndExist) {
    EXPECT_EQ(supportDir(), std::filesystem::path(std::getenv("XDG_DATA_HOME")) / "Tarnwick" / "snapshots");
    EXPECT_TRUE(std::filesystem::is_directory(supportDir()));
}

TEST(DataFolder, PreparingAnExistingFolderLeavesItsContentsUntouched) {
    TempDir dir;
    auto folder = dir.path() / "Tarnwick" / "snapshots";
    std::filesystem::create_directories(folder);
    writeText(folder / "2026-03-14_09-26-53.json", "{}");
    writeText(folder / "notes.txt", "mine");
    auto before = std::filesystem::last_write_time(folder / "notes.txt");
    EXPECT_EQ(prepareFolder(folder), folder);
    EXPECT_EQ(fileNames(folder), (std::vector<std::string>{"2026-03-14_09-26-53.json", "notes.txt"}));
    EXPECT_EQ(readText(folder / "notes.txt"), "mine");
    EXPECT_EQ(std::filesystem::last_write_time(folder / "notes.txt"), before);
}

TEST(DataFolder, PreparingCreatesMissingParents) {
    TempDir dir;
    auto folder = dir.path() / "a" / "b" / "snapshots";
    EXPECT_EQ(prepareFolder(folder), folder);
    EXPECT_TRUE(std::filesystem::is_directory(folder));
}

TEST(DataFolder, PreparingWhereAFileStandsIsIgnored) {
    TempDir dir;
    writeText(dir.path() / "file", "x");
    EXPECT_EQ(prepareFolder(dir.path() / "file" / "snapshots"), dir.path() / "file" / "snapshots");
    EXPECT_EQ(readText(dir.path() / "file"), "x");
}

}  // namespace
}  // namespace tarnwick::testing
