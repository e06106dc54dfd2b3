// The command-line modes, run as real processes: tarnwick-sim on a simulated
// desktop described through its environment, and the product binary itself.
#include "main/run_program.h"
#include "model/snapshot_json.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <csignal>

namespace tarnwick::testing {
namespace {

// A small session: an editor with two windows (one minimized), a browser with
// three tabs in two windows, Finder with one folder, Terminal with one window.
const char* const kDesktop = R"({
  "home": "/Users/tester",
  "frontmost": "com.example.Editor",
  "files": ["/Users/tester/Documents", "/Users/tester/src"],
  "apps": [
    {"bundleID": "com.example.Editor", "bundlePath": "/Applications/Editor.app", "name": "Editor",
     "running": true,
     "windows": [{"title": "Draft", "frame": [0, 25, 800, 600]},
                 {"title": "Notes", "frame": [820, 25, 400, 500], "minimized": true}]},
    {"bundleID": "com.google.Chrome", "bundlePath": "/Applications/Google Chrome.app", "name": "Google Chrome",
     "running": true,
     "windows": [{"tabs": ["https://a.example/", "https://b.example/"], "activeTab": 2, "frame": [0, 25, 1200, 800]},
                 {"tabs": ["https://c.example/"], "frame": [40, 60, 1000, 700]}]},
    {"bundleID": "com.apple.finder", "bundlePath": "/System/Library/CoreServices/Finder.app", "name": "Finder",
     "running": true, "windows": [{"folder": "/Users/tester/Documents/", "frame": [100, 80, 920, 480]}]},
    {"bundleID": "com.apple.Terminal", "bundlePath": "/System/Applications/Utilities/Terminal.app",
     "name": "Terminal", "running": true,
     "windows": [{"tty": "/dev/ttys004", "shellDirectory": "/Users/tester/src", "frame": [0, 25, 600, 400]}]},
    {"bundleID": "com.example.Agent", "bundlePath": "/Applications/Agent.app", "name": "Agent",
     "policy": "accessory", "running": true}
  ]
})";

class CliTest : public ::testing::Test {
protected:
    TempDir dir{"tarnwick-cli"};
    const std::string sim = TARNWICK_SIM_PATH;

    std::vector<std::string> environmentFor(const std::string& description) {
        // HOME points into the test's folder so that a log line never reaches the real one.
        return {"TARNWICK_SIM_DESKTOP=" + description, "HOME=" + dir.path().string()};
    }
    Finished sim_(const std::vector<std::string>& arguments, const std::string& description = kDesktop) {
        return run(sim, arguments, environmentFor(description));
    }
    std::string file(const std::string& name, const std::string& text) {
        auto path = dir.path() / name;
        writeText(path, text);
        return path.string();
    }
};

TEST_F(CliTest, CapturePrintsTheFileFormThatDecodesAndTheSummaryLine) {
    auto environment = environmentFor(kDesktop);
    environment.push_back("XDG_CONFIG_HOME=" + (dir.path() / "config").string());
    Finished finished = run(sim, {"--capture"}, environment);

    ASSERT_TRUE(finished.exitedWith(0)) << finished.err;
    ASSERT_FALSE(finished.out.empty());
    EXPECT_EQ(finished.out.back(), '\n');
    std::string error;
    auto snapshot = decodeSnapshot(finished.out, &error);
    ASSERT_TRUE(snapshot) << error;
    // Exactly the store's file form: pretty, sorted keys, ISO 8601 date, then a line feed.
    EXPECT_EQ(encodeSnapshot(*snapshot).value() + "\n", finished.out);
    EXPECT_NE(finished.out.find("\"date\" : \"2026-01-05T10:00:00Z\""), std::string::npos);
    EXPECT_EQ(snapshot->reason, "cli");
    EXPECT_EQ(snapshot->frontmost, "com.example.Editor");
    ASSERT_EQ(snapshot->apps.size(), 4u);
    EXPECT_EQ(snapshot->apps[0].windows.size(), 2u);
    EXPECT_TRUE(snapshot->apps[0].windows[1].minimized);
    EXPECT_EQ(snapshot->apps[1].scripted.size(), 2u);
    EXPECT_EQ(snapshot->apps[2].scripted[0].items, TextList{"/Users/tester/Documents/"});
    EXPECT_EQ(snapshot->apps[3].scripted[0].items, TextList{"/Users/tester/src"});
    EXPECT_EQ(finished.err, snapshot->summary() + "; accessibility on\n");
    EXPECT_EQ(finished.err, "4 apps · 6 windows · 3 tabs; accessibility on\n");
    // Signed, as the store's files are, so that restoring what it printed
    // starts what it names.
    ASSERT_TRUE(snapshot->signature.has_value());
    EXPECT_EQ(snapshot->signature->size(), 64u);
    // No snapshot file and no log line: the only file made is the signing key.
    std::vector<std::string> made;
    for (const auto& item : std::filesystem::recursive_directory_iterator(dir.path()))
        if (item.is_regular_file()) made.push_back(std::filesystem::relative(item.path(), dir.path()).string());
    EXPECT_EQ(made, std::vector<std::string>{"config/Tarnwick/signing.key"});
}

TEST_F(CliTest, CaptureWithoutAccessibilitySaysSo) {
    std::string description = kDesktop;
    description.replace(description.find("\"home\""), 6, "\"trusted\": false, \"home\"");
    Finished finished = sim_({"--capture"}, description);
    ASSERT_TRUE(finished.exitedWith(0)) << finished.err;
    EXPECT_EQ(finished.err, "4 apps · 4 windows · 3 tabs; accessibility off\n");
}

TEST_F(CliTest, RestoringWhatIsAlreadyInPlacePlacesTheGenericWindowsAndReportsNoProblem) {
    Finished captured = sim_({"--capture"});
    ASSERT_TRUE(captured.exitedWith(0)) << captured.err;
    std::string path = file("session.json", captured.out);

    Finished restored = sim_({"--restore", path});

    ASSERT_TRUE(restored.exitedWith(0)) << restored.err;
    EXPECT_EQ(restored.out,
              "Restoring 1/4: Editor\n"
              "Restoring 2/4: Google Chrome\n"
              "Restoring 3/4: Finder\n"
              "Restoring 4/4: Terminal\n"
              "launched 0, windows 2, tabs 0\n");
    EXPECT_EQ(restored.err, "");
}

TEST_F(CliTest, RestoringOntoAnEmptyDesktopLaunchesReopensAndListsProblems) {
    Finished captured = sim_({"--capture"});
    ASSERT_TRUE(captured.exitedWith(0)) << captured.err;
    auto snapshot = decodeSnapshot(captured.out).value();
    AppState missing;
    missing.name = "Gone";
    missing.bundleID = "com.example.Gone";
    missing.bundlePath = "/Applications/Gone.app";
    snapshot.apps.push_back(missing);
    std::string path = file("session.json", encodeSnapshot(snapshot).value());
    // The same apps installed, none running; Finder and Terminal open with no windows.
    const char* empty = R"({
      "files": ["/Users/tester/Documents", "/Users/tester/src"],
      "apps": [
        {"bundleID": "com.example.Editor", "bundlePath": "/Applications/Editor.app", "name": "Editor",
         "windowsOnLaunch": [{"title": "Draft"}, {"title": "Notes"}]},
        {"bundleID": "com.google.Chrome", "bundlePath": "/Applications/Google Chrome.app", "name": "Google Chrome",
         "windowsOnLaunch": [{"tabs": ["chrome://newtab/"]}]},
        {"bundleID": "com.apple.finder", "bundlePath": "/System/Library/CoreServices/Finder.app", "name": "Finder",
         "running": true},
        {"bundleID": "com.apple.Terminal", "bundlePath": "/System/Applications/Utilities/Terminal.app",
         "name": "Terminal",
         "windowsOnLaunch": [{"tty": "/dev/ttys000", "shellDirectory": "/Users/tester"}]}
      ]
    })";

    Finished restored = sim_({"--restore", path}, empty);

    ASSERT_TRUE(restored.exitedWith(0)) << restored.err;
    EXPECT_EQ(restored.out,
              "Restoring 1/5: Editor\n"
              "Restoring 2/5: Google Chrome\n"
              "Restoring 3/5: Finder\n"
              "Restoring 4/5: Terminal\n"
              "Restoring 5/5: Gone\n"
              "launched 3, windows 6, tabs 3\n"
              "problem: Gone: app not found\n");
}

TEST_F(CliTest, NumbersNoDesktopHasAreLeftOutOfADiffAndARestoreAndStopNothing) {
    // The editor's window on a workspace no window manager has, one frame far
    // off every screen and one of negative size; the browser window's frame and
    // tab beyond what any integer holds.
    std::string path = file("absurd.json", R"({
      "apps" : [
        {"bundleID" : "com.example.Editor", "bundlePath" : "\/Applications\/Editor.app", "hidden" : false,
         "kind" : "generic", "name" : "Editor", "scripted" : [ ],
         "windows" : [
           {"title" : "Draft", "frame" : {"x" : 1e300, "y" : -1e300, "w" : 1e300, "h" : 1e300},
            "minimized" : false, "fullScreen" : false, "workspace" : 9223372036854775807},
           {"title" : "Notes", "frame" : {"x" : -1e300, "y" : 25, "w" : -1e300, "h" : 500},
            "minimized" : true, "fullScreen" : false, "workspace" : -9223372036854775808}]},
        {"bundleID" : "com.google.Chrome", "bundlePath" : "\/Applications\/Google Chrome.app", "hidden" : false,
         "kind" : "chromium", "name" : "Google Chrome", "windows" : [ ],
         "scripted" : [
           {"activeIndex" : 9223372036854775807, "items" : ["https:\/\/z.example\/"],
            "frame" : {"x" : 9e18, "y" : 9e18, "w" : 9e18, "h" : 9e18}}]}
      ],
      "date" : "2026-01-05T09:00:00Z", "reason" : "manual"
    })");

    Finished diff = sim_({"--diff", path});
    ASSERT_TRUE(diff.exitedWith(0)) << diff.err;
    // The first line names the snapshot's date in local time; the rest is what would change.
    size_t firstEnd = diff.out.find('\n');
    ASSERT_NE(firstEnd, std::string::npos) << diff.out;
    EXPECT_EQ(diff.out.rfind("what restoring the snapshot of ", 0), 0u) << diff.out;
    EXPECT_NE(diff.out.find(" (manual, 2 apps \u00B7 3 windows \u00B7 1 tabs) would do:\n"), std::string::npos);
    EXPECT_EQ(diff.out.substr(firstEnd + 1), "  reopen: Google Chrome: a window with 1 tabs\n");

    Finished restored = sim_({"--restore", path});
    ASSERT_TRUE(restored.exitedWith(0)) << restored.err;
    EXPECT_EQ(restored.out,
              "Restoring 1/2: Editor\n"
              "Restoring 2/2: Google Chrome\n"
              "launched 0, windows 3, tabs 1\n");
}

TEST_F(CliTest, ADisplayThatGoesAwayStopsEachModeWithALineAndStatusThree) {
    Finished captured = sim_({"--capture"});
    ASSERT_TRUE(captured.exitedWith(0)) << captured.err;
    auto snapshot = decodeSnapshot(captured.out).value();
    AppState later;
    later.name = "Later";
    later.bundleID = "com.example.Later";
    later.bundlePath = "/Applications/Later.app";
    later.windows = {WindowState{}};
    snapshot.apps.insert(snapshot.apps.begin(), later);
    std::string path = file("session.json", encodeSnapshot(snapshot).value());
    // Later takes long to start; the display is gone 0.3 s in.
    std::string description = kDesktop;
    description.replace(description.find("\"apps\": ["), 9,
                        R"("lostAt": 0.3, "apps": [
        {"bundleID": "com.example.Later", "bundlePath": "/Applications/Later.app", "name": "Later",
         "finishedAfter": 60},)");

    Finished restored = sim_({"--restore", path}, description);
    EXPECT_TRUE(restored.exitedWith(3)) << restored.status;
    EXPECT_EQ(restored.out,
              "Restoring 1/5: Later\n"
              "launched 1, windows 0, tabs 0\n"
              "problem: the display went away; the restore stopped there\n");
    EXPECT_EQ(restored.err, "tarnwick: the display went away; the restore stopped before it was done\n");

    std::string gone = kDesktop;
    gone.replace(gone.find("\"home\""), 6, "\"lostAt\": 0, \"home\"");
    Finished capture = sim_({"--capture"}, gone);
    EXPECT_TRUE(capture.exitedWith(3));
    EXPECT_EQ(capture.out, "");
    EXPECT_EQ(capture.err, "tarnwick: the display went away; nothing was captured\n");

    Finished save = sim_({"--save"}, gone);
    EXPECT_TRUE(save.exitedWith(3));
    EXPECT_EQ(save.out, "");
    EXPECT_EQ(save.err, "tarnwick: the display went away; nothing was saved\n");

    Finished diff = sim_({"--diff", path}, gone);
    EXPECT_TRUE(diff.exitedWith(3));
    EXPECT_EQ(diff.err, "tarnwick: the display went away; what a restore would do is not known\n");
}

TEST_F(CliTest, AFileThatIsNotJsonStopsTheProcessWithADiagnosticAndNothingMore) {
    std::string path = file("notes.txt", "these are not the snapshots you are looking for\n");
    Finished finished = sim_({"--restore", path});
    EXPECT_TRUE(finished.stoppedAbnormally());
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.err.rfind("tarnwick: " + path + " is not a snapshot: ", 0), 0u) << finished.err;
}

TEST_F(CliTest, ASnapshotWithAnUnknownKindStopsTheProcess) {
    Snapshot snapshot;
    AppState app;
    app.name = "Editor";
    app.bundlePath = "/Applications/Editor.app";
    snapshot.apps = {app};
    std::string json = encodeSnapshot(snapshot).value();
    json.replace(json.find("\"generic\""), 9, "\"spreadsheet\"");
    std::string path = file("odd.json", json);
    Finished finished = sim_({"--restore", path});
    EXPECT_TRUE(finished.stoppedAbnormally());
    EXPECT_EQ(finished.out, "");
    EXPECT_NE(finished.err.find(path), std::string::npos) << finished.err;
    EXPECT_NE(finished.err.find("kind"), std::string::npos) << finished.err;
}

TEST_F(CliTest, AMissingFileStopsTheProcessNamingTheFile) {
    std::string path = (dir.path() / "nowhere.json").string();
    Finished finished = sim_({"--restore", path});
    EXPECT_TRUE(finished.stoppedAbnormally());
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.err, "tarnwick: cannot read " + path + ": No such file or directory\n");
}

TEST_F(CliTest, AFolderInsteadOfAFileStopsTheProcess) {
    Finished finished = sim_({"--restore", dir.path().string()});
    EXPECT_TRUE(finished.stoppedAbnormally());
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.err, "tarnwick: " + dir.path().string() + " is not a readable snapshot: not a regular file\n");
}

TEST_F(CliTest, CaptureWinsOverRestore) {
    Finished finished = sim_({"--restore", (dir.path() / "nowhere.json").string(), "--capture"});
    ASSERT_TRUE(finished.exitedWith(0)) << finished.err;
    EXPECT_TRUE(decodeSnapshot(finished.out));
}

TEST_F(CliTest, RestoreWithTwoPathsUsesTheFirst) {
    Finished captured = sim_({"--capture"});
    std::string path = file("session.json", captured.out);
    Finished finished = sim_({"--restore", path, (dir.path() / "nowhere.json").string()});
    ASSERT_TRUE(finished.exitedWith(0)) << finished.err;
    EXPECT_NE(finished.out.find("launched 0, windows 2, tabs 0\n"), std::string::npos);
}

TEST_F(CliTest, RestoreAsTheLastArgumentStartsTheApplicationInstead) {
    Finished finished = sim_({"--restore"});
    // The simulated desktop has no menu-bar application: it says so and stops.
    EXPECT_TRUE(finished.exitedWith(3));
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.err, "tarnwick-sim: the menu-bar application does not run on the simulated desktop\n");
}

TEST_F(CliTest, AnUnusableDesktopDescriptionIsRefused) {
    Finished finished = sim_({"--capture"}, R"({"apps": [{"bundlePath": "/A.app", "colour": "red"}]})");
    EXPECT_TRUE(finished.exitedWith(2));
    EXPECT_EQ(finished.err, "tarnwick-sim: unusable TARNWICK_SIM_DESKTOP: desktop.apps[0].colour is not a known key\n");
}

#if !defined(__APPLE__)
TEST_F(CliTest, TheProductWithoutAnXDisplaySaysSoInOneLineAndDoesNotCapture) {
    struct Case {
        const char* display;
        const char* line;
    };
    const Case cases[] = {
        {"DISPLAY=", "tarnwick: no desktop: neither a Wayland session nor an X11 display (DISPLAY is not set); "
                     "capture and restore need an X11 desktop or KDE Plasma on Wayland\n"},
        {"DISPLAY=:987", "tarnwick: cannot open the X display :987; capture and restore need an X11 desktop or KDE "
                         "Plasma on Wayland\n"},
    };
    // A snapshot that reads well: what is missing then is the display.
    std::string snapshot = file("x.json", encodeSnapshot(Snapshot{}).value());
    const std::vector<std::vector<std::string>> modes{{"--capture"}, {"--restore", snapshot}, {"--save"}, {"--diff", snapshot}};
    for (const Case& c : cases)
        for (const auto& mode : modes) {
            Finished finished = run(TARNWICK_PATH, mode,
                                    {"HOME=" + dir.path().string(), c.display, "WAYLAND_DISPLAY=", "XDG_SESSION_TYPE=",
                                     "TARNWICK_BACKEND="});
            EXPECT_TRUE(finished.exitedWith(2)) << mode[0] << " " << c.display;
            EXPECT_EQ(finished.out, "");
            EXPECT_EQ(finished.err, c.line);
        }
    EXPECT_EQ(fileNames(dir.path()), std::vector<std::string>{"x.json"}) << "nothing captured, nothing saved";
}

TEST_F(CliTest, AMistypedCommandLineIsAUsageErrorAndNeverStartsTheTray) {
    struct Case {
        std::vector<std::string> arguments;
        std::string line;
    };
    const std::string help = "; tarnwick --help lists the modes\n";
    const Case cases[] = {
        {{"--lsit"}, "tarnwick: unknown option \"--lsit\"" + help},
        {{"list"}, "tarnwick: unexpected argument \"list\"" + help},
        {{"-v"}, "tarnwick: unknown option \"-v\"" + help},
        {{"--restore="}, "tarnwick: unknown option \"--restore=\"" + help},
        {{"--restore", ""}, "tarnwick: empty snapshot name after --restore" + help},
        {{"--diff", ""}, "tarnwick: empty snapshot name after --diff" + help},
        {{"--list", "--jsno"}, "tarnwick: unknown option \"--jsno\"" + help},
    };
    // A store with a snapshot, which an empty name must not pick as the newest.
    auto store = dir.path() / "data" / "Tarnwick" / "snapshots";
    std::filesystem::create_directories(store);
    writeText(store / "2026-01-01_00-00-00.json", encodeSnapshot(Snapshot{}).value());
    const auto config = dir.path() / "config";
    for (const Case& c : cases) {
        // Without a display a tray started by mistake fails at once, with another line.
        Finished finished = run(TARNWICK_PATH, c.arguments,
                                {"HOME=" + dir.path().string(), "DISPLAY=", "XDG_CONFIG_HOME=" + config.string(),
                                 "XDG_DATA_HOME=" + (dir.path() / "data").string(),
                                 "XDG_STATE_HOME=" + (dir.path() / "state").string()});
        EXPECT_TRUE(finished.exitedWith(2)) << c.arguments[0];
        EXPECT_EQ(finished.out, "");
        EXPECT_EQ(finished.err, c.line);
    }
    EXPECT_FALSE(std::filesystem::exists(config)) << "no autostart entry, no settings";
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "state")) << "no log line";
}

TEST_F(CliTest, AMissingFileIsReportedAsSuchWhateverTheDisplay) {
    for (const char* display : {"DISPLAY=", "DISPLAY=:987"})
        for (const char* mode : {"--restore", "--diff"}) {
            Finished finished =
                run(TARNWICK_PATH, {mode, (dir.path() / "x.json").string()}, {"HOME=" + dir.path().string(), display});
            EXPECT_TRUE(finished.stoppedAbnormally()) << mode << " " << display;
            EXPECT_EQ(finished.out, "");
            EXPECT_EQ(finished.err, "tarnwick: cannot read " + (dir.path() / "x.json").string() +
                                        ": No such file or directory\n");
        }
}
#endif

}  // namespace
}  // namespace tarnwick::testing
