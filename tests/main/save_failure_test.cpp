// `--save` when the snapshot cannot be written, run as a real process on a real
// full disk, a read-only folder and under a file-size limit: the failure is
// said on standard error with status 1, nothing on standard output claims a
// save, and no temporary file is left.
#include "main/run_program.h"
#include "model/snapshot_json.h"
#include "store/store.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

namespace tarnwick::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;

// An editor with `windows` windows; the clock starts now, after the boot.
std::string desktop(int windows) {
    std::string list;
    for (int i = 0; i < windows; ++i)
        list += std::string(i ? ", " : "") + "{\"title\": \"Chapter " + std::to_string(i) + "\", \"frame\": [" +
                std::to_string(10 * i) + ", 25, 800, 600]}";
    return R"({"date": "now", "home": "/Users/tester", "apps": [{"bundleID": "com.example.Editor",
      "bundlePath": "/Applications/Editor.app", "name": "Editor", "running": true, "windows": [)" +
           list + "]}]}";
}

// Mounts a small tmpfs, or the folder itself read-only, in a mount namespace of
// the child's own (see saveInPrivateMounts), so nothing of the host is touched.
const char* const kFullDisk = R"(
data=$1 listing=$2; shift 2
mount -t tmpfs -o size=16k none "$data" || exit 97
mkdir -p "$data/Tarnwick/snapshots"
dd if=/dev/zero of="$data/filler" bs=1024 2>/dev/null
"$@"; status=$?
ls -A "$data/Tarnwick/snapshots" > "$listing"
exit $status
)";
const char* const kReadOnly = R"(
data=$1; shift
mount --bind "$data" "$data" && mount -o remount,bind,ro "$data" || exit 97
exec "$@"
)";

class SaveFailureTest : public ::testing::Test {
protected:
    TempDir dir{"tarnwick-save-failure"};
    std::filesystem::path data() const { return dir.path() / "data"; }
    std::filesystem::path snapshots() const { return data() / "Tarnwick" / "snapshots"; }
    std::filesystem::path logFile() const { return dir.path() / "state" / "Tarnwick" / "Tarnwick.log"; }

    void SetUp() override { std::filesystem::create_directories(data()); }

    std::vector<std::string> environment(int windows) const {
        return {"TARNWICK_SIM_DESKTOP=" + desktop(windows), "HOME=" + dir.path().string(),
                "XDG_DATA_HOME=" + data().string(), "XDG_STATE_HOME=" + (dir.path() / "state").string(),
                "XDG_CONFIG_HOME=" + (dir.path() / "config").string()};
    }
    // `tarnwick-sim --save` run through a shell script that sets the scene;
    // the script's own arguments come first.
    Finished saveThrough(const std::string& script, std::vector<std::string> arguments, int windows = 1) {
        std::vector<std::string> all{"-c", script, "sh"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        all.insert(all.end(), {TARNWICK_SIM_PATH, "--save"});
        return run("/bin/sh", all, environment(windows));
    }
    // The same with the script in a mount namespace of its own, which it
    // checks before it mounts anything: status 97 when it is not.
    Finished saveInPrivateMounts(const std::string& script, std::vector<std::string> arguments) {
        std::error_code error;
        std::string host = std::filesystem::read_symlink("/proc/self/ns/mnt", error).string();
        std::string checked = "[ \"$(readlink /proc/self/ns/mnt)\" != \"$1\" ] || exit 97\nshift\n" + script;
        arguments.insert(arguments.begin(), host);
        arguments.insert(arguments.begin(), {checked, "sh"});
        return saveThrough("exec unshare -m /bin/sh -c \"$@\"", arguments);
    }
    // Why mounts in a private namespace cannot be made here; empty when they can.
    std::string privateMountsMissing() {
        auto probe = dir.path() / "probe";
        std::filesystem::create_directories(probe);
        Finished finished =
            run("/bin/sh", {"-c", "unshare -m mount -t tmpfs -o size=16k none \"$0\"", probe.string()});
        return finished.exitedWith(0) ? "" : "cannot mount in a private namespace: " + finished.err;
    }
    // The log's messages, without their time stamps.
    std::vector<std::string> logged() const {
        std::vector<std::string> messages;
        std::string text = readText(logFile());
        for (size_t at = 0, end; at < text.size(); at = end + 1) {
            end = text.find('\n', at);
            if (end == std::string::npos) end = text.size();
            std::string line = text.substr(at, end - at);
            messages.push_back(line.substr(line.find(' ') + 1));
        }
        return messages;
    }
    // Every name in the snapshot folder, hidden ones too.
    std::vector<std::string> inFolder() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(snapshots()))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    // The text as a regular expression that matches only itself.
    static std::string quoted(const std::string& text) {
        return std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
    }
};

TEST_F(SaveFailureTest, AFullDiskIsAFailure) {
    if (std::string why = privateMountsMissing(); !why.empty()) GTEST_SKIP() << why;
    auto listing = dir.path() / "listing";
    Finished finished = saveInPrivateMounts(kFullDisk, {data().string(), listing.string()});

    ASSERT_FALSE(finished.exitedWith(97)) << finished.err;
    EXPECT_TRUE(finished.exitedWith(1)) << finished.status;
    EXPECT_EQ(finished.out, "");
    std::string temporary = quoted(snapshots().string()) + "/\\.[-_0-9]+\\.json\\.[A-Za-z0-9]{6}";
    EXPECT_THAT(finished.err,
                MatchesRegex("tarnwick: save failed: could not write " + temporary + ": No space left on device\n"));
    EXPECT_EQ(readText(listing), "") << "neither a snapshot nor a temporary file";
    EXPECT_THAT(logged(), ElementsAre(MatchesRegex("save failed: could not write " + temporary +
                                                   ": No space left on device"),
                                      "save (cli): 1 apps \u00B7 1 windows \u2014 unchanged, skipped"));
}

TEST_F(SaveFailureTest, AReadOnlyFolderIsAFailureAndKeepsWhatItHeld) {
    if (std::string why = privateMountsMissing(); !why.empty()) GTEST_SKIP() << why;
    // Root writes through permission bits, so the folder is mounted read-only.
    std::filesystem::create_directories(snapshots());
    Snapshot older;
    older.date = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()) - std::chrono::hours(1);
    older.reason = "manual";
    AppState app;
    app.name = "Other";
    app.bundlePath = "/Applications/Other.app";
    older.apps.push_back(app);
    std::string olderName = Store::fileName(older.date);
    writeText(snapshots() / olderName, encodeSnapshot(older).value());
    Finished finished = saveInPrivateMounts(kReadOnly, {data().string()});

    ASSERT_FALSE(finished.exitedWith(97)) << finished.err;
    EXPECT_TRUE(finished.exitedWith(1)) << finished.status;
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.err, "tarnwick: save failed: could not create a temporary file in " + snapshots().string() +
                                ": Read-only file system\n");
    EXPECT_THAT(inFolder(), ElementsAre(olderName));
    EXPECT_THAT(logged(), ElementsAre("save failed: could not create a temporary file in " + snapshots().string() +
                                          ": Read-only file system",
                                      "save (cli): 1 apps \u00B7 1 windows \u2014 unchanged, skipped"));
}

TEST_F(SaveFailureTest, AFileSizeLimitIsAFailureNotASignalAndLeavesNoTemporaryFile) {
    std::filesystem::create_directories(snapshots());
    // Sixty windows make a snapshot of several kilobytes; the limit is one
    // block (512 or 1024 bytes, by shell), above the log's two lines.
    Finished finished = saveThrough("ulimit -f 1 && exec \"$@\"", {}, 60);

    EXPECT_FALSE(finished.stoppedAbnormally()) << "signal " << WTERMSIG(finished.status);
    EXPECT_TRUE(finished.exitedWith(1)) << finished.status;
    EXPECT_EQ(finished.out, "");
    std::string temporary = quoted(snapshots().string()) + "/\\.[-_0-9]+\\.json\\.[A-Za-z0-9]{6}";
    EXPECT_THAT(finished.err,
                MatchesRegex("tarnwick: save failed: could not write " + temporary + ": File too large\n"));
    EXPECT_THAT(inFolder(), ::testing::IsEmpty()) << "neither a snapshot nor a temporary file";
    EXPECT_THAT(logged(), ElementsAre(MatchesRegex("save failed: could not write " + temporary + ": File too large"),
                                      "save (cli): 1 apps \u00B7 60 windows \u2014 unchanged, skipped"));
}

}  // namespace
}  // namespace tarnwick::testing
