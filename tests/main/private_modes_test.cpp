// The folders and files Tarnwick keeps for the user are the user's alone,
// whatever the umask it runs under: "--save" run as a process under umask 022
// and 000, into XDG folders that are missing or that already exist.
#include "main/run_program.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace tarnwick::testing {
namespace {

const char* const kDesktop = R"({"date": "now", "home": "/Users/tester", "apps": [
  {"bundleID": "com.example.Editor", "bundlePath": "/Applications/Editor.app", "name": "Editor",
   "running": true, "windows": [{"title": "Draft", "frame": [0, 25, 800, 600]}]}]})";

class PrivateModesTest : public ::testing::Test {
protected:
    TempDir dir{"tarnwick-modes"};
    std::filesystem::path data() const { return dir.path() / "data"; }
    std::filesystem::path state() const { return dir.path() / "state"; }
    std::filesystem::path snapshots() const { return data() / "Tarnwick" / "snapshots"; }
    std::filesystem::path logFile() const { return state() / "Tarnwick" / "Tarnwick.log"; }

    // "--save" on the simulated desktop, started by a shell that sets the umask first.
    void saveUnder(const char* umask) {
        Finished finished = run("/bin/sh", {"-c", std::string("umask ") + umask + " && exec \"$0\" \"$@\"",
                                            TARNWICK_SIM_PATH, "--save"},
                                {"TARNWICK_SIM_DESKTOP=" + std::string(kDesktop), "HOME=" + dir.path().string(),
                                 "XDG_DATA_HOME=" + data().string(), "XDG_STATE_HOME=" + state().string(),
                                 "XDG_CONFIG_HOME=" + (dir.path() / "config").string()});
        ASSERT_TRUE(finished.exitedWith(0)) << finished.err;
    }
    static mode_t modeOf(const std::filesystem::path& path) {
        struct stat info {};
        EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
        return info.st_mode & 07777;
    }
    void expectPrivate() {
        EXPECT_EQ(modeOf(data() / "Tarnwick"), 0700u);
        EXPECT_EQ(modeOf(snapshots()), 0700u);
        EXPECT_EQ(modeOf(state() / "Tarnwick"), 0700u);
        EXPECT_EQ(modeOf(logFile()), 0600u);
        auto written = fileNames(snapshots());
        ASSERT_EQ(written.size(), 1u);
        EXPECT_EQ(modeOf(snapshots() / written[0]), 0600u);
    }
};

TEST_F(PrivateModesTest, EverythingMadeIsPrivateUnderTheUsualUmask) {
    saveUnder("022");
    expectPrivate();
}

TEST_F(PrivateModesTest, EverythingMadeIsPrivateUnderAnOpenUmask) {
    saveUnder("000");
    expectPrivate();
}

// Folders and a log that an older version or a wider umask left open are
// closed; the XDG base folders around them are the user's, and stay as they are.
TEST_F(PrivateModesTest, WhatAlreadyExistsOpenIsClosedAndTheBaseFoldersAreLeftAlone) {
    std::filesystem::create_directories(snapshots());
    std::filesystem::create_directories(logFile().parent_path());
    writeText(logFile(), "2026-03-14T09:26:53Z an older line\n");
    for (const auto& [path, mode] : std::vector<std::pair<std::filesystem::path, mode_t>>{
             {data(), 0755}, {data() / "Tarnwick", 0777}, {snapshots(), 0755}, {state(), 0751},
             {state() / "Tarnwick", 0755}, {logFile(), 0644}})
        ASSERT_EQ(::chmod(path.c_str(), mode), 0);
    saveUnder("022");
    expectPrivate();
    EXPECT_EQ(modeOf(data()), 0755u);
    EXPECT_EQ(modeOf(state()), 0751u);
    EXPECT_EQ(readText(logFile()).rfind("2026-03-14T09:26:53Z an older line\n", 0), 0u) << "kept, appended to";
}

}  // namespace
}  // namespace tarnwick::testing
