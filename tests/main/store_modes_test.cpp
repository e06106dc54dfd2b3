// The command line's modes around the store, run as real processes: help and
// version from the product without a display, and list, save, restore by name
// and diff through tarnwick-sim on a simulated desktop, with a store of their own.
#include "main/run_program.h"
#include "model/iso_date.h"
#include "model/snapshot_json.h"
#include "store/store.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace tarnwick::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// An editor with one window, a browser with one window of two tabs; the clock
// starts now, and the machine booted a day before (TARNWICK_SIM_BOOT_TIME), so
// snapshots of the last hours count as taken after the boot.
const char* const kDesktop = R"({
  "date": "now",
  "home": "/Users/tester",
  "apps": [
    {"bundleID": "com.example.Editor", "bundlePath": "/Applications/Editor.app", "name": "Editor",
     "running": true, "windows": [{"title": "Draft", "frame": [0, 25, 800, 600]}]},
    {"bundleID": "com.google.Chrome", "bundlePath": "/Applications/Google Chrome.app", "name": "Google Chrome",
     "running": true,
     "windows": [{"tabs": ["https://a.example/", "https://b.example/"], "frame": [0, 25, 1200, 800]}]},
    {"bundleID": "com.example.Notes", "bundlePath": "/Applications/Notes.app", "name": "Notes",
     "windowsOnLaunch": [{"title": "Notes"}]}
  ]
})";

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\n', at);
        if (end == std::string::npos) end = text.size();
        out.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return out;
}

class StoreModesTest : public ::testing::Test {
protected:
    TempDir dir{"tarnwick-store-modes"};
    const std::string bootTime =
        isoDateText(std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()) - std::chrono::hours(24))
            .value();
    std::filesystem::path snapshots() const { return dir.path() / "data" / "Tarnwick" / "snapshots"; }
    std::filesystem::path logFile() const { return dir.path() / "state" / "Tarnwick" / "Tarnwick.log"; }

    std::vector<std::string> environment(const std::string& description = kDesktop) const {
        return {"TARNWICK_SIM_DESKTOP=" + description, "TARNWICK_SIM_BOOT_TIME=" + bootTime,
                "HOME=" + dir.path().string(),
                "XDG_DATA_HOME=" + (dir.path() / "data").string(), "XDG_STATE_HOME=" + (dir.path() / "state").string(),
                "XDG_CONFIG_HOME=" + (dir.path() / "config").string()};
    }
    Finished sim(const std::vector<std::string>& arguments, const std::string& description = kDesktop,
                 const std::string& folder = "") {
        return run(TARNWICK_SIM_PATH, arguments, environment(description), folder);
    }
    // A stored snapshot of the given age with one app, written as the store names it.
    std::filesystem::path store(Snapshot snapshot) {
        std::filesystem::create_directories(snapshots());
        auto file = snapshots() / Store::fileName(snapshot.date);
        writeText(file, encodeSnapshot(snapshot).value());
        return file;
    }
    static Snapshot aged(std::chrono::hours age, const std::string& reason, const std::string& app) {
        Snapshot snapshot;
        snapshot.date = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()) - age;
        snapshot.reason = reason;
        AppState state;
        state.name = app;
        state.bundlePath = "/Applications/" + app + ".app";
        state.windows.push_back(WindowState{});
        snapshot.apps.push_back(state);
        return snapshot;
    }
};

#if !defined(__APPLE__)
TEST_F(StoreModesTest, HelpAndVersionNeedNoDisplay) {
    for (const char* help : {"--help", "-h"}) {
        Finished finished = run(TARNWICK_PATH, {help}, {"DISPLAY=", "HOME=" + dir.path().string(),
                                                        "XDG_DATA_HOME=" + (dir.path() / "data").string(),
                                                        "XDG_STATE_HOME=" + (dir.path() / "state").string(),
                                                        "XDG_CONFIG_HOME=" + (dir.path() / "config").string()});
        ASSERT_TRUE(finished.exitedWith(0)) << finished.err;
        EXPECT_THAT(finished.out, StartsWith("Usage: tarnwick [MODE]\n"));
        for (const char* mode : {"--capture", "--restore SNAPSHOT", "--diff [SNAPSHOT]", "--save [REASON]",
                                 "--list [--json]", "--help, -h", "--version"})
            EXPECT_THAT(finished.out, HasSubstr("\n  " + std::string(mode))) << mode;
        EXPECT_THAT(finished.out, HasSubstr("  snapshots  " + snapshots().string() + "\n"));
        EXPECT_THAT(finished.out, HasSubstr("  log        " + logFile().string() + "\n"));
        EXPECT_THAT(finished.out,
                    HasSubstr("  settings   " + (dir.path() / "config" / "Tarnwick" / "settings.ini").string() + "\n"));
        EXPECT_THAT(finished.out, HasSubstr("Exit status: 0 when the mode ran"));
        EXPECT_THAT(finished.out, HasSubstr("2 when the arguments are not understood"));
        EXPECT_EQ(finished.err, "");
    }
    Finished version = run(TARNWICK_PATH, {"--version"}, {"DISPLAY="});
    ASSERT_TRUE(version.exitedWith(0));
    EXPECT_EQ(version.out, std::string("tarnwick ") + TARNWICK_VERSION + "\n");
}

TEST_F(StoreModesTest, ListingNeedsNoDisplayEither) {
    Finished finished = run(TARNWICK_PATH, {"--list"}, {"DISPLAY=", "XDG_DATA_HOME=" + (dir.path() / "data").string()});
    ASSERT_TRUE(finished.exitedWith(0)) << finished.err;
    EXPECT_EQ(finished.out, "No snapshots yet in " + snapshots().string() + "\n");
}
#endif

TEST_F(StoreModesTest, AnEmptyStoreListsNothingAsTextAndAsJson) {
    Finished text = sim({"--list"});
    ASSERT_TRUE(text.exitedWith(0)) << text.err;
    EXPECT_EQ(text.out, "No snapshots yet in " + snapshots().string() + "\n");
    Finished json = sim({"--list", "--json"});
    ASSERT_TRUE(json.exitedWith(0));
    EXPECT_EQ(json.out, "[]\n");
}

TEST_F(StoreModesTest, TheListIsNewestFirstMarksTheOneFromBeforeTheBootAndNamesWhatItCannotRead) {
    Snapshot preBoot = aged(std::chrono::hours(24 * 400), "shutdown", "Mail");  // long before any boot
    Snapshot older = aged(std::chrono::hours(2), "auto", "Editor");
    Snapshot newer = aged(std::chrono::hours(1), "manual", "Notes");
    for (const Snapshot& snapshot : {preBoot, older, newer}) store(snapshot);
    writeText(snapshots() / "2020-01-01_00-00-00.json", "{ not a snapshot");
    writeText(snapshots() / "notes.txt", "not even named like one");

    Finished text = sim({"--list"});
    ASSERT_TRUE(text.exitedWith(0)) << text.err;
    auto shown = lines(text.out);
    ASSERT_EQ(shown.size(), 3u) << text.out;
    EXPECT_THAT(shown[0], StartsWith("  1  " + Store::fileName(newer.date) + "  "));
    EXPECT_THAT(shown[0], HasSubstr("  manual    1 apps \u00B7 1 windows"));
    EXPECT_THAT(shown[1], StartsWith("  2  " + Store::fileName(older.date) + "  "));
    EXPECT_THAT(shown[2], StartsWith("  3  " + Store::fileName(preBoot.date) + "  "));
    EXPECT_THAT(shown[2], ::testing::EndsWith("  shutdown  1 apps \u00B7 1 windows  (before restart)"));
    EXPECT_EQ(text.err, "tarnwick: 2020-01-01_00-00-00.json is not a readable snapshot; left as it is\n");
    EXPECT_TRUE(std::filesystem::exists(snapshots() / "2020-01-01_00-00-00.json")) << "never deleted";

    Finished json = sim({"--list", "--json"});
    ASSERT_TRUE(json.exitedWith(0));
    auto rows = lines(json.out);
    ASSERT_EQ(rows.size(), 5u) << json.out;
    EXPECT_EQ(rows[0], "[");
    // Strings as the snapshot files write them, "/" escaped too.
    EXPECT_THAT(rows[1], HasSubstr("{\"position\": 1, \"file\": " +
                                   jsonString((snapshots() / Store::fileName(newer.date)).string()) + ", \"date\": \""));
    EXPECT_THAT(rows[1], HasSubstr("\"reason\": \"manual\", \"summary\": \"1 apps \u00B7 1 windows\", \"apps\": 1, "
                                   "\"windows\": 1, \"tabs\": 0, \"beforeBoot\": false},"));
    EXPECT_THAT(rows[3], HasSubstr("\"beforeBoot\": true}"));
    EXPECT_EQ(rows[4], "]");
}

TEST_F(StoreModesTest, SavingTwiceWithNothingChangedSkipsTheSecondAsTheApplicationDoes) {
    Finished first = sim({"--save"});
    ASSERT_TRUE(first.exitedWith(0)) << first.err;
    auto said = lines(first.out);
    ASSERT_EQ(said.size(), 2u) << first.out;
    EXPECT_EQ(said[0], "save (cli): 2 apps \u00B7 2 windows \u00B7 2 tabs");
    EXPECT_THAT(said[1], StartsWith("wrote " + snapshots().string() + "/"));
    auto written = fileNames(snapshots());
    ASSERT_EQ(written.size(), 1u);
    auto snapshot = decodeSnapshot(readText(snapshots() / written[0]));
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(snapshot->reason, "cli");

    Finished second = sim({"--save", "hook"});
    ASSERT_TRUE(second.exitedWith(0)) << second.err;
    EXPECT_EQ(second.out, "save (hook): 2 apps \u00B7 2 windows \u00B7 2 tabs \u2014 unchanged, skipped\n");
    EXPECT_EQ(fileNames(snapshots()).size(), 1u);

    std::vector<std::string> logged;
    for (const std::string& line : lines(readText(logFile())))
        if (!line.empty()) logged.push_back(line.substr(line.find(' ') + 1));
    EXPECT_THAT(logged, ElementsAre("save (cli): 2 apps \u00B7 2 windows \u00B7 2 tabs",
                                    "save (hook): 2 apps \u00B7 2 windows \u00B7 2 tabs \u2014 unchanged, skipped"));
}

TEST_F(StoreModesTest, ALineFeedInTheReasonCannotForgeALogLine) {
    Finished saved = sim({"--save", "x\n2026-01-01T00:00:00Z forged"});
    ASSERT_TRUE(saved.exitedWith(0)) << saved.err;
    const std::string line = "save (x\\n2026-01-01T00:00:00Z forged): 2 apps \u00B7 2 windows \u00B7 2 tabs";
    EXPECT_EQ(lines(saved.out).front(), line);
    std::string logged = readText(logFile());
    EXPECT_EQ(std::count(logged.begin(), logged.end(), '\n'), 1) << logged;
    EXPECT_THAT(logged, ::testing::EndsWith(" " + line + "\n"));
    // The snapshot keeps the reason as it was given.
    auto written = fileNames(snapshots());
    ASSERT_EQ(written.size(), 1u);
    EXPECT_EQ(decodeSnapshot(readText(snapshots() / written[0]))->reason, "x\n2026-01-01T00:00:00Z forged");
}

TEST_F(StoreModesTest, ControlCharactersInNamesTitlesAndReasonsReachTheTerminalEscaped) {
    // An editor whose window title holds an escape sequence.
    const std::string desktop = R"({
      "date": "now",
      "apps": [
        {"bundleID": "com.example.Editor", "bundlePath": "/Applications/Editor.app", "name": "Editor",
         "running": true, "windows": [{"title": "Dr\u001b[8maft", "frame": [0, 25, 800, 600]}]}
      ]
    })";
    Finished captured = sim({"--capture"}, desktop);
    ASSERT_TRUE(captured.exitedWith(0)) << captured.err;
    Snapshot snapshot = decodeSnapshot(captured.out).value();
    ASSERT_EQ(snapshot.apps.at(0).windows.at(0).title, "Dr\x1b[8maft");
    snapshot.apps[0].windows[0].frame->x += 100;
    snapshot.reason = "auto\x1b[8m\u009b";
    AppState clock;
    clock.name = "Clock\x1b[8m";
    clock.bundlePath = "/Applications/Clock.app";
    snapshot.apps.push_back(clock);
    store(snapshot);

    Finished diff = sim({"--diff"}, desktop);
    ASSERT_TRUE(diff.exitedWith(0)) << diff.err;
    auto said = lines(diff.out);
    ASSERT_EQ(said.size(), 3u) << diff.out;
    EXPECT_THAT(said[0], HasSubstr(" (auto\\u001b[8m\\u009b, 2 apps"));
    EXPECT_EQ(said[1], "  move: Editor \"Dr\\u001b[8maft\" from 0,25 to 100,25 (100 px)");
    EXPECT_EQ(said[2], "  cannot: Clock\\u001b[8m: app not found");

    Finished list = sim({"--list"}, desktop);
    ASSERT_TRUE(list.exitedWith(0)) << list.err;
    EXPECT_THAT(list.out, HasSubstr("  auto\\u001b[8m\\u009b  2 apps"));
    Finished json = sim({"--list", "--json"}, desktop);
    ASSERT_TRUE(json.exitedWith(0)) << json.err;
    EXPECT_THAT(json.out, HasSubstr("\"reason\": \"auto\\u001b[8m\\u009b\""));

    Finished restored = sim({"--restore", "latest"}, desktop);
    ASSERT_TRUE(restored.exitedWith(0)) << restored.err;
    EXPECT_EQ(restored.out,
              "Restoring 1/2: Editor\n"
              "Restoring 2/2: Clock\\u001b[8m\n"
              "launched 0, windows 1, tabs 0\n"
              "problem: Clock\\u001b[8m: app not found\n");
    for (const Finished* run : {&diff, &list, &json, &restored})
        for (char c : run->out) EXPECT_NE(c, '\x1b');
}

TEST_F(StoreModesTest, RestoreBeforeBootWithNoneSaysSoWithStatusOne) {
    store(aged(std::chrono::hours(1), "auto", "Editor"));
    Finished finished = sim({"--restore", "before-boot"});
    EXPECT_TRUE(finished.exitedWith(1));
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.err, "tarnwick: no snapshot from before the last restart in " + snapshots().string() + "\n");

    Finished none = sim({"--restore", "7"});
    EXPECT_TRUE(none.exitedWith(1));
    EXPECT_EQ(none.err, "tarnwick: no snapshot number 7; the store holds 1 (tarnwick --list shows them)\n");
}

TEST_F(StoreModesTest, TheBootIsTheSimulatedMachinesNeverTheHosts) {
    store(aged(std::chrono::hours(1), "auto", "Editor"));
    auto bootedAgo = [&](std::chrono::minutes age) {
        auto boot = isoDateText(std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()) - age);
        auto env = environment();
        env.push_back("TARNWICK_SIM_BOOT_TIME=" + boot.value());
        env.erase(env.begin() + 1);  // the fixture's boot
        return run(TARNWICK_SIM_PATH, {"--list"}, env);
    };
    Finished fresh = bootedAgo(std::chrono::minutes(30));
    ASSERT_TRUE(fresh.exitedWith(0)) << fresh.err;
    EXPECT_THAT(fresh.out, ::testing::EndsWith("  (before restart)\n"));
    Finished old = bootedAgo(std::chrono::minutes(120));
    ASSERT_TRUE(old.exitedWith(0)) << old.err;
    EXPECT_THAT(old.out, Not(HasSubstr("(before restart)")));

#if !defined(__APPLE__)
    // The product itself asks the system: a snapshot from tomorrow is never
    // from before its boot, whatever the variable says.
    Snapshot tomorrow = aged(std::chrono::hours(-24), "auto", "Notes");
    store(tomorrow);
    Finished product = run(TARNWICK_PATH, {"--list"},
                           {"DISPLAY=", "TARNWICK_SIM_BOOT_TIME=2099-01-01T00:00:00Z",
                            "XDG_DATA_HOME=" + (dir.path() / "data").string()});
    ASSERT_TRUE(product.exitedWith(0)) << product.err;
    EXPECT_THAT(lines(product.out)[0], StartsWith("  1  " + Store::fileName(tomorrow.date) + "  "));
    EXPECT_THAT(lines(product.out)[0], Not(HasSubstr("(before restart)")));
#endif
}

TEST_F(StoreModesTest, RestoreByNameTakesTheStoresSnapshotUnlessAFileOfThatNameExists) {
    Snapshot preBoot = aged(std::chrono::hours(24 * 400), "shutdown", "Notes");
    preBoot.apps.front().bundleID = "com.example.Notes";
    preBoot.apps.front().bundlePath = "/Applications/Notes.app";
    store(preBoot);
    Finished before = sim({"--restore", "before-boot"});
    ASSERT_TRUE(before.exitedWith(0)) << before.err;
    EXPECT_EQ(before.out, "Restoring 1/1: Notes\nlaunched 1, windows 1, tabs 0\n");

    Finished latest = sim({"--restore", "latest"});
    ASSERT_TRUE(latest.exitedWith(0)) << latest.err;
    EXPECT_EQ(latest.out, "Restoring 1/1: Notes\nlaunched 1, windows 1, tabs 0\n");
    Finished first = sim({"--restore", "1"});
    EXPECT_EQ(first.out, latest.out);

    // A file called "latest" in the working folder wins over the name.
    Snapshot empty;
    writeText(dir.path() / "latest", encodeSnapshot(empty).value());
    Finished file = sim({"--restore", "latest"}, kDesktop, dir.path().string());
    ASSERT_TRUE(file.exitedWith(0)) << file.err;
    EXPECT_EQ(file.out, "launched 0, windows 0, tabs 0\n");
}

TEST_F(StoreModesTest, DiffTellsWhatARestoreWouldChangeAndChangesNothing) {
    Finished captured = sim({"--capture"});
    ASSERT_TRUE(captured.exitedWith(0)) << captured.err;
    Snapshot snapshot = decodeSnapshot(captured.out).value();
    // The editor's window was 100 px to the right, the browser had a second
    // window with one tab that is closed now, and Notes ran then.
    snapshot.apps[0].windows[0].frame->x += 100;
    snapshot.apps[1].scripted.push_back(ScriptedWindow{Frame{40, 60, 1000, 700}, {"https://c.example/"}, 1});
    AppState notes;
    notes.name = "Notes";
    notes.bundleID = "com.example.Notes";
    notes.bundlePath = "/Applications/Notes.app";
    notes.windows.push_back(WindowState{});
    snapshot.apps.push_back(notes);
    AppState gone;
    gone.name = "Gone";
    gone.bundlePath = "/Applications/Gone.app";
    snapshot.apps.push_back(gone);
    std::string path = (dir.path() / "then.json").string();
    writeText(path, encodeSnapshot(snapshot).value());

    Finished diff = sim({"--diff", path});
    ASSERT_TRUE(diff.exitedWith(0)) << diff.err;
    auto said = lines(diff.out);
    ASSERT_GE(said.size(), 1u);
    EXPECT_THAT(said[0], StartsWith("what restoring the snapshot of "));
    EXPECT_THAT(said[0], ::testing::EndsWith(" (cli, 4 apps \u00B7 4 windows \u00B7 3 tabs) would do:"));
    EXPECT_THAT(std::vector<std::string>(said.begin() + 1, said.end()),
                ElementsAre("  reopen: Google Chrome: a window with 1 tabs", "  launch: Notes: /Applications/Notes.app",
                            "  move: Editor \"Draft\" from 0,25 to 100,25 (100 px)", "  cannot: Gone: app not found"));

    // Nothing was done: the same diff again, and a restore still has it all to do.
    Finished again = sim({"--diff", path});
    EXPECT_EQ(again.out, diff.out);
}

TEST_F(StoreModesTest, DiffOfTheLiveSessionItselfHasNothingToDo) {
    ASSERT_TRUE(sim({"--save"}).exitedWith(0));
    Finished diff = sim({"--diff"});
    ASSERT_TRUE(diff.exitedWith(0)) << diff.err;
    EXPECT_THAT(lines(diff.out), ElementsAre(::testing::_, "  nothing: the live session already matches it"));
}

}  // namespace
}  // namespace tarnwick::testing
