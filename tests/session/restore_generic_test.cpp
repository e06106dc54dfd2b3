// Restore::restoreGeneric, waitForWindows and fileURLPath on the simulated desktop.
#include "session/restore.h"

#include "support/log_watch.h"
#include "support/sim_desktop.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarnwick {
namespace {

using testing::appSpec;
using testing::ScopedPlatform;
using testing::SimAppSpec;
using testing::SimDesktop;
using testing::SimWindow;

SimWindow live(std::optional<std::string> title, std::optional<std::string> document = std::nullopt) {
    SimWindow made;
    made.title = std::move(title);
    made.document = std::move(document);
    made.frame = {1, 1, 300, 200};
    return made;
}

WindowState saved(std::optional<std::string> title, Frame frame, std::optional<std::string> document = std::nullopt) {
    return WindowState{std::move(title), std::move(document), frame, false, false};
}

class RestoreGenericTest : public ::testing::Test {
protected:
    SimDesktop desktop;
    ScopedPlatform installed{desktop};
    Restore::Result result;
    SimAppSpec spec = appSpec("com.example.Editor", "/Applications/Editor.app", "Editor");
    AppState app = [] {
        AppState made;
        made.name = "Editor";
        made.bundleID = "com.example.Editor";
        made.bundlePath = "/Applications/Editor.app";
        return made;
    }();

    // The editor already running, with these windows.
    std::int32_t running(const std::vector<SimWindow>& windows) {
        desktop.install(spec);
        auto pid = desktop.startApp(spec);
        for (const SimWindow& window : windows) desktop.addWindow(pid, window);
        return pid;
    }
    App handle(std::int32_t pid) {
        for (const App& candidate : desktop.runningApplications())
            if (desktop.appInfo(candidate).pid == pid) return candidate;
        ADD_FAILURE() << "no such application";
        return App();
    }
    void restore(std::int32_t pid, bool launched) { Restore::restoreGeneric(app, handle(pid), launched, result); }

    testing::LogWatch log;
};

TEST_F(RestoreGenericTest, RunningApplicationWithAllWindowsIsPlacedAfterOneListingAndNoSleep) {
    auto pid = running({live("One"), live("Two")});
    app.windows = {saved("One", {0, 25, 800, 600}), saved("Two", {50, 75, 640, 480})};

    restore(pid, false);

    EXPECT_EQ(desktop.calls("copyAttribute:AXWindows"), 1);
    EXPECT_TRUE(desktop.sleeps.empty());
    auto ids = desktop.visibleWindows(pid);
    EXPECT_EQ(desktop.window(ids[0]).frame, (Frame{0, 25, 800, 600}));
    EXPECT_EQ(desktop.window(ids[1]).frame, (Frame{50, 75, 640, 480}));
    EXPECT_EQ(result.windows, 2);
    EXPECT_TRUE(result.problems.empty());
}

TEST_F(RestoreGenericTest, FreshlyLaunchedApplicationWithTooFewWindowsIsPolledEveryHalfSecondForTwelveSeconds) {
    auto pid = running({live("One")});
    app.windows = {saved("One", {0, 25, 800, 600}), saved("Two", {0, 25, 800, 600}), saved("Three", {0, 25, 8, 6})};
    double started = desktop.now();

    restore(pid, true);

    EXPECT_EQ(desktop.sleeps, std::vector<double>(24, 0.5));
    EXPECT_EQ(desktop.now() - started, 12.0);
    EXPECT_EQ(desktop.calls("copyAttribute:AXWindows"), 25);
    EXPECT_EQ(result.windows, 1);
}

TEST_F(RestoreGenericTest, AlreadyRunningApplicationWithTooFewWindowsWaitsOneSecond) {
    auto pid = running({live("One")});
    app.windows = {saved("One", {0, 25, 800, 600}), saved("Two", {0, 25, 800, 600})};
    restore(pid, false);
    EXPECT_EQ(desktop.sleeps, std::vector<double>(2, 0.5));
    EXPECT_EQ(result.windows, 1);
}

TEST_F(RestoreGenericTest, PollingStopsAsSoonAsEnoughWindowsAppear) {
    SimWindow late = live("Two");
    late.appearsAfter = 1.2;
    auto pid = running({live("One"), late});
    app.windows = {saved("One", {0, 25, 800, 600}), saved("Two", {9, 25, 800, 600})};
    restore(pid, true);
    EXPECT_EQ(desktop.sleeps, std::vector<double>(3, 0.5));
    EXPECT_EQ(result.windows, 2);
    EXPECT_EQ(desktop.window(desktop.visibleWindows(pid)[1]).frame, (Frame{9, 25, 800, 600}));
}

TEST_F(RestoreGenericTest, WaitForWindowsReturnsTheShortListAtTheDeadline) {
    auto pid = running({live("One")});
    auto windows = Restore::waitForWindows(pid, 3, 2.0);
    EXPECT_EQ(windows.size(), 1u);
    EXPECT_EQ(desktop.now(), 2.0);
    // A time-out of nothing lists once and does not sleep.
    desktop.sleeps.clear();
    EXPECT_EQ(Restore::waitForWindows(pid, 3, 0).size(), 1u);
    EXPECT_TRUE(desktop.sleeps.empty());
}

TEST_F(RestoreGenericTest, TwoSavedWindowsWithTheSameTitlePairWithTheFirstTwoLiveOnesInOrder) {
    auto pid = running({live("Notes"), live("Other"), live("Notes"), live("Notes")});
    app.windows = {saved("Notes", {10, 10, 100, 100}), saved("Notes", {20, 20, 200, 200})};
    restore(pid, false);
    auto ids = desktop.visibleWindows(pid);
    EXPECT_EQ(desktop.window(ids[0]).frame, (Frame{10, 10, 100, 100}));
    EXPECT_EQ(desktop.window(ids[1]).frame, (Frame{1, 1, 300, 200}));
    EXPECT_EQ(desktop.window(ids[2]).frame, (Frame{20, 20, 200, 200}));
    EXPECT_EQ(desktop.window(ids[3]).frame, (Frame{1, 1, 300, 200}));
}

TEST_F(RestoreGenericTest, SavedWindowWithoutDocumentOrTitleTakesTheFirstRemainingLiveWindow) {
    auto pid = running({live("A"), live("B"), live("C")});
    app.windows = {saved("B", {10, 10, 100, 100}), saved(std::nullopt, {20, 20, 200, 200})};
    restore(pid, false);
    auto ids = desktop.visibleWindows(pid);
    EXPECT_EQ(desktop.window(ids[0]).frame, (Frame{20, 20, 200, 200}));
    EXPECT_EQ(desktop.window(ids[1]).frame, (Frame{10, 10, 100, 100}));
    EXPECT_EQ(desktop.window(ids[2]).frame, (Frame{1, 1, 300, 200}));
}

TEST_F(RestoreGenericTest, PairingIsGreedyInSavedOrder) {
    // The first saved window has no match, so it takes "B" although the second one wanted it.
    auto pid = running({live("B"), live("X")});
    app.windows = {saved("Nothing like it", {10, 10, 100, 100}), saved("B", {20, 20, 200, 200})};
    restore(pid, false);
    auto ids = desktop.visibleWindows(pid);
    EXPECT_EQ(desktop.window(ids[0]).frame, (Frame{10, 10, 100, 100}));
    EXPECT_EQ(desktop.window(ids[1]).frame, (Frame{20, 20, 200, 200}));
}

TEST_F(RestoreGenericTest, DocumentMatchComesBeforeTitleAndComparisonsAreExact) {
    auto pid = running({live("report", "file:///r/Report.txt"), live("Report", "file:///r/report.txt")});
    app.windows = {saved("report", {10, 10, 100, 100}, "file:///r/report.txt")};
    desktop.addFile("/r/report.txt");
    restore(pid, false);
    auto ids = desktop.visibleWindows(pid);
    EXPECT_EQ(desktop.window(ids[1]).frame, (Frame{10, 10, 100, 100}));
    EXPECT_EQ(desktop.window(ids[0]).frame, (Frame{1, 1, 300, 200}));
    EXPECT_EQ(desktop.calls("openDocuments"), 0);
}

TEST_F(RestoreGenericTest, ThreeSavedAndTwoLiveWindowsPlaceTwo) {
    auto pid = running({live("A"), live("B")});
    app.windows = {saved("A", {10, 10, 100, 100}), saved("B", {20, 20, 100, 100}), saved("C", {30, 30, 100, 100})};
    result.windows = 5;
    restore(pid, false);
    EXPECT_EQ(result.windows, 7);
    EXPECT_TRUE(result.problems.empty());
}

TEST_F(RestoreGenericTest, MissingDocumentsAreReopenedTogetherThenPaired) {
    auto pid = running({live("Open one", "file:///Users/tester/open.txt")});
    desktop.addFile("/Users/tester/open.txt");
    desktop.addFile("/Users/tester/a b.txt");
    desktop.addFile("/Users/tester/c.txt");
    app.windows = {saved("a b.txt", {10, 10, 100, 100}, "file:///Users/tester/a%20b.txt"),
                   saved("Open one", {20, 20, 100, 100}, "file:///Users/tester/open.txt"),
                   saved("c.txt", {30, 30, 100, 100}, "file://localhost/Users/tester/c.txt")};

    restore(pid, false);

    EXPECT_EQ(desktop.calls("openDocuments"), 1);
    auto ids = desktop.visibleWindows(pid);
    ASSERT_EQ(ids.size(), 3u);
    EXPECT_EQ(desktop.window(ids[0]).frame, (Frame{20, 20, 100, 100}));
    EXPECT_EQ(desktop.window(ids[1]).document, "file:///Users/tester/a%20b.txt");
    EXPECT_EQ(desktop.window(ids[1]).frame, (Frame{10, 10, 100, 100}));
    EXPECT_EQ(desktop.window(ids[2]).frame, (Frame{30, 30, 100, 100}));
    EXPECT_EQ(result.windows, 3);
    // One second of waiting while running, the open's answer, then polls until
    // the documents' windows show half a second after the open.
    EXPECT_EQ(desktop.now(), 1.0 + 0.1 + 0.5);
}

TEST_F(RestoreGenericTest, DocumentsThatAreNotLocalFilesAreNeverOpened) {
    auto pid = running({});
    desktop.addFile("/Users/tester/there.txt");
    app.windows = {saved("web", {10, 10, 100, 100}, "https://example.com/there.txt"),
                   saved("gone", {10, 10, 100, 100}, "file:///Users/tester/gone.txt"),
                   saved("remote", {10, 10, 100, 100}, "file://server/Users/tester/there.txt"),
                   saved("malformed", {10, 10, 100, 100}, "file:///Users/tester/there .txt")};
    restore(pid, false);
    EXPECT_EQ(desktop.calls("openDocuments"), 0);
    EXPECT_EQ(result.windows, 0);
}

TEST_F(RestoreGenericTest, DocumentsThatFailToOpenAreLoggedAndPairingGoesOn) {
    spec.refusesDocuments = true;
    auto pid = running({live("Untitled")});
    desktop.addFile("/Users/tester/a.txt");
    app.windows = {saved("a.txt", {10, 10, 100, 100}, "file:///Users/tester/a.txt")};
    restore(pid, false);
    EXPECT_EQ(log.newText().substr(21), "open docs in Editor: The documents could not be opened.\n");
    // The refusal answers at once, and the one live window already makes up the count.
    EXPECT_EQ(desktop.now(), 0.0);
    EXPECT_EQ(desktop.calls("openDocuments"), 1);
    EXPECT_EQ(result.windows, 1);
    EXPECT_EQ(desktop.window(desktop.visibleWindows(pid)[0]).frame, (Frame{10, 10, 100, 100}));
}

TEST_F(RestoreGenericTest, SecondWaitGivesOpenedDocumentsTenSeconds) {
    spec.refusesDocuments = true;
    auto pid = running({});
    desktop.addFile("/Users/tester/a.txt");
    app.windows = {saved("a.txt", {10, 10, 100, 100}, "file:///Users/tester/a.txt")};
    restore(pid, true);
    EXPECT_EQ(desktop.now(), 12.0 + 10.0);
    EXPECT_EQ(desktop.sleeps, std::vector<double>(44, 0.5));
    EXPECT_EQ(result.windows, 0);
}

TEST_F(RestoreGenericTest, DocumentsAreNotOpenedWithoutABundle) {
    auto pid = running({});
    desktop.removeFile("/Applications/Editor.app");
    app.bundleID = "com.example.Moved";
    desktop.addFile("/Users/tester/a.txt");
    app.windows = {saved("a.txt", {10, 10, 100, 100}, "file:///Users/tester/a.txt")};
    restore(pid, false);
    EXPECT_EQ(desktop.calls("openDocuments"), 0);
    EXPECT_EQ(desktop.now(), 1.0);
}

TEST_F(RestoreGenericTest, FullScreenWindowGetsFullScreenAndNoFrameWrite) {
    auto pid = running({live("Film")});
    WindowState film = saved("Film", {0, 0, 1440, 900});
    film.fullScreen = true;
    app.windows = {film};
    restore(pid, false);
    EXPECT_EQ(desktop.calls("setAttribute:AXPosition"), 0);
    EXPECT_EQ(desktop.calls("setAttribute:AXSize"), 0);
    EXPECT_TRUE(desktop.window(desktop.visibleWindows(pid)[0]).fullScreen);
    EXPECT_EQ(result.windows, 1);
}

TEST_F(RestoreGenericTest, MinimizedWindowIsPlacedThenMinimizedAndNothingIsUndone) {
    SimWindow already = live("Kept");
    already.minimized = true;
    auto pid = running({live("Small"), already});
    WindowState small = saved("Small", {5, 30, 400, 300});
    small.minimized = true;
    app.windows = {small, saved("Kept", {6, 30, 400, 300})};
    restore(pid, false);
    auto ids = desktop.visibleWindows(pid);
    EXPECT_EQ(desktop.window(ids[0]).frame, (Frame{5, 30, 400, 300}));
    EXPECT_TRUE(desktop.window(ids[0]).minimized);
    // Saved as not minimized: it is left minimized, never restored.
    EXPECT_TRUE(desktop.window(ids[1]).minimized);
    EXPECT_EQ(desktop.calls("setAttribute:AXMinimized"), 1);
}

TEST_F(RestoreGenericTest, WindowWithoutASavedFrameKeepsItsOwn) {
    auto pid = running({live("A")});
    app.windows = {WindowState{"A", std::nullopt, std::nullopt, false, false}};
    restore(pid, false);
    EXPECT_EQ(desktop.calls("setAttribute:AXPosition"), 0);
    EXPECT_EQ(result.windows, 1);
}

TEST_F(RestoreGenericTest, FailedWritesStillCountThePlacedWindow) {
    SimWindow stuck = live("A");
    stuck.unreadable = {"AXPosition", "AXSize"};
    auto pid = running({stuck});
    app.windows = {saved("A", {10, 10, 100, 100})};
    restore(pid, false);
    EXPECT_EQ(result.windows, 1);
    EXPECT_EQ(desktop.window(desktop.visibleWindows(pid)[0]).frame, (Frame{1, 1, 300, 200}));
}

TEST_F(RestoreGenericTest, WithoutTrustNothingIsTouched) {
    auto pid = running({live("A")});
    app.windows = {saved("A", {10, 10, 100, 100})};
    desktop.trusted = false;
    restore(pid, true);
    EXPECT_EQ(desktop.calls("copyAttribute:AXWindows"), 0);
    EXPECT_TRUE(desktop.writes.empty());
    EXPECT_TRUE(desktop.sleeps.empty());
    EXPECT_EQ(result.windows, 0);
}

TEST_F(RestoreGenericTest, NoSavedWindowsMeansNothingIsLookedAt) {
    auto pid = running({live("A")});
    restore(pid, true);
    EXPECT_EQ(desktop.calls("copyAttribute:AXWindows"), 0);
    EXPECT_EQ(result.windows, 0);
}

TEST(FileURLPath, ReadsLocalFileURLs) {
    EXPECT_EQ(Restore::fileURLPath("file:///Users/tester/a%20b.txt"), "/Users/tester/a b.txt");
    EXPECT_EQ(Restore::fileURLPath("file://localhost/tmp/x"), "/tmp/x");
    EXPECT_EQ(Restore::fileURLPath("FILE:///tmp/x?query#part"), "/tmp/x");
    EXPECT_EQ(Restore::fileURLPath("file:/tmp/x"), "/tmp/x");
    EXPECT_EQ(Restore::fileURLPath("file:///Users/tester/caf%C3%A9/"), "/Users/tester/café/");
}

TEST(FileURLPath, RejectsEverythingElse) {
    for (const char* text : {"https://example.com/x", "/tmp/x", "file://server/tmp/x", "file:///tmp/a b",
                             "file:///tmp/%zz", "file:///tmp/%4", "file:///tmp/%00x", "file:", "file://", "",
                             "file:relative/path", "fil:///tmp"})
        EXPECT_EQ(Restore::fileURLPath(text), std::nullopt) << text;
}

}  // namespace
}  // namespace tarnwick

namespace tarnwick {
namespace {

using ::testing::ElementsAre;

// The attribute names written to each window, in order.
std::vector<std::string> writtenNames(const SimDesktop& desktop) {
    std::vector<std::string> names;
    for (const auto& write : desktop.writes) names.push_back(write.attribute);
    return names;
}

TEST_F(RestoreGenericTest, TheWorkspaceComesFirstAndAMaximizedAxisIsReleasedBeforeTheFrame) {
    auto pid = running({live("Doc")});
    WindowState window = saved("Doc", Frame{10, 20, 300, 200});
    window.workspace = 2;
    window.maximizedHorizontally = false;
    window.maximizedVertically = true;
    app.windows = {window};
    restore(pid, false);
    EXPECT_THAT(writtenNames(desktop),
                ElementsAre("TWWorkspace", "TWMaximizedHorizontally", "AXSize", "AXPosition", "AXSize",
                            "TWMaximizedVertically"));
    EXPECT_EQ(desktop.writes[0].value, AttrValue(std::int64_t{2}));
    EXPECT_EQ(desktop.writes[1].value, AttrValue(false));
    EXPECT_EQ(desktop.writes[5].value, AttrValue(true));
    EXPECT_EQ(result.windows, 1);
}

TEST_F(RestoreGenericTest, AWindowMaximizedBothWaysKeepsItsSizeForLater) {
    auto pid = running({live("Doc")});
    WindowState window = saved("Doc", Frame{0, 0, 1600, 1000});
    window.maximizedHorizontally = true;
    window.maximizedVertically = true;
    app.windows = {window};
    restore(pid, false);
    EXPECT_THAT(writtenNames(desktop), ElementsAre("TWMaximized"))
        << "one request for both ways, and no frame: the manager sizes it, and the size it has stays for when "
           "it is restored";
    EXPECT_EQ(desktop.writes[0].value, AttrValue(true));
}

TEST_F(RestoreGenericTest, AWindowMaximizedNeitherWayIsReleasedInOneRequestBeforeItsFrame) {
    auto pid = running({live("Doc")});
    WindowState window = saved("Doc", Frame{10, 20, 300, 200});
    window.maximizedHorizontally = false;
    window.maximizedVertically = false;
    app.windows = {window};
    restore(pid, false);
    EXPECT_THAT(writtenNames(desktop), ElementsAre("TWMaximized", "AXSize", "AXPosition", "AXSize"));
    EXPECT_EQ(desktop.writes[0].value, AttrValue(false));
}

TEST_F(RestoreGenericTest, WithoutTheWindowManagersStatesNothingOfThemIsWritten) {
    auto pid = running({live("Doc")});
    app.windows = {saved("Doc", Frame{10, 20, 300, 200})};
    restore(pid, false);
    EXPECT_THAT(writtenNames(desktop), ElementsAre("AXSize", "AXPosition", "AXSize"));
}

}  // namespace
}  // namespace tarnwick

namespace tarnwick {
namespace {

TEST_F(RestoreGenericTest, UnderAWindowManagerAFrameThatHoldsIsWrittenOnce) {
    desktop.windowManager = "openbox";
    auto pid = running({live("Doc")});
    app.windows = {saved("Doc", Frame{10, 20, 300, 200})};
    restore(pid, false);
    EXPECT_THAT(writtenNames(desktop), ElementsAre("AXSize", "AXPosition", "AXSize"));
    EXPECT_LT(desktop.now(), 0.1) << "looked at once, and it held";
}

TEST_F(RestoreGenericTest, UnderAWindowManagerAFrameThatDidNotHoldIsWrittenOnceMore) {
    desktop.windowManager = "openbox";
    SimWindow stubborn = live("Doc");
    stubborn.unreadable = {"AXSize"};  // the frame never reads back as written
    auto pid = running({stubborn});
    app.windows = {saved("Doc", Frame{10, 20, 300, 200})};
    restore(pid, false);
    EXPECT_THAT(writtenNames(desktop),
                ElementsAre("AXSize", "AXPosition", "AXSize", "AXSize", "AXPosition", "AXSize"));
    EXPECT_GE(desktop.now(), 0.5);
    EXPECT_LT(desktop.now(), 1.0);
    EXPECT_EQ(result.windows, 1);
}

TEST_F(RestoreGenericTest, WithoutAWindowManagerFramesAreWrittenOnceAndNeverLookedAtAgain) {
    SimWindow stubborn = live("Doc");
    stubborn.unreadable = {"AXSize"};
    auto pid = running({stubborn});
    app.windows = {saved("Doc", Frame{10, 20, 300, 200})};
    restore(pid, false);
    EXPECT_THAT(writtenNames(desktop), ElementsAre("AXSize", "AXPosition", "AXSize"));
    EXPECT_EQ(desktop.now(), 0.0);
}

}  // namespace
}  // namespace tarnwick

namespace tarnwick {
namespace {

const std::vector<Output> twoScreens{{"DP-1", Frame{0, 0, 1280, 800}}, {"DP-2", Frame{1280, 0, 1920, 1080}}};

TEST(OntoOutputs, AFrameAnyOutputShowsPartOfStaysAsItIs) {
    EXPECT_EQ(Restore::ontoOutputs(Frame{1500, 100, 400, 300}, "DP-2", twoScreens), (Frame{1500, 100, 400, 300}));
    // Half off the right edge of the last screen: still partly shown, so the user's own choice.
    EXPECT_EQ(Restore::ontoOutputs(Frame{3000, 900, 400, 300}, "DP-2", twoScreens), (Frame{3000, 900, 400, 300}));
    // Across two screens.
    EXPECT_EQ(Restore::ontoOutputs(Frame{1100, 10, 400, 300}, "DP-1", twoScreens), (Frame{1100, 10, 400, 300}));
}

TEST(OntoOutputs, WithNoOutputsKnownNothingMoves) {
    EXPECT_EQ(Restore::ontoOutputs(Frame{-5000, 9000, 400, 300}, "DP-2", {}), (Frame{-5000, 9000, 400, 300}));
}

TEST(OntoOutputs, AFrameOnAScreenThatIsGoneComesOntoTheNearestWhole) {
    const std::vector<Output> one{twoScreens[0]};
    // It was on the second screen, right of the first.
    EXPECT_EQ(Restore::ontoOutputs(Frame{1500, 100, 400, 300}, "DP-2", one), (Frame{880, 100, 400, 300}));
    // Below and left of it: both coordinates come in.
    EXPECT_EQ(Restore::ontoOutputs(Frame{-900, 1200, 400, 300}, std::nullopt, one), (Frame{0, 500, 400, 300}));
    // Larger than the screen: made as large as the screen, never larger.
    EXPECT_EQ(Restore::ontoOutputs(Frame{1300, 0, 1900, 1000}, "DP-2", one), (Frame{0, 0, 1280, 800}));
}

TEST(OntoOutputs, TheNearestOfSeveralIsChosenByTheGapBetweenThem) {
    const std::vector<Output> apart{{"left", Frame{0, 0, 1000, 800}}, {"right", Frame{3000, 0, 1000, 800}}};
    EXPECT_EQ(Restore::ontoOutputs(Frame{2500, 100, 200, 100}, std::nullopt, apart), (Frame{3000, 100, 200, 100}));
    EXPECT_EQ(Restore::ontoOutputs(Frame{1200, 100, 200, 100}, std::nullopt, apart), (Frame{800, 100, 200, 100}));
}

TEST(OntoOutputs, TheRecordedOutputIsPreferredWhileItIsThere) {
    // The screens moved: the frame lies outside both, nearer the first, but it was on the second.
    const std::vector<Output> moved{{"DP-1", Frame{0, 0, 1280, 800}}, {"DP-2", Frame{0, 800, 1920, 1080}}};
    EXPECT_EQ(Restore::ontoOutputs(Frame{1500, 100, 400, 300}, "DP-2", moved), (Frame{1500, 800, 400, 300}));
}

// A window recorded on the second screen, restored on a desktop with these screens.
class RestoreOntoScreensTest : public RestoreGenericTest {
protected:
    void restoreOnto(std::vector<Output> screens) {
        desktop.screens = std::move(screens);
        auto pid = running({live("Doc")});
        WindowState window = saved("Doc", Frame{1500, 100, 400, 300});
        window.output = "DP-2";
        app.windows = {window};
        restore(pid, false);
    }
};

TEST_F(RestoreOntoScreensTest, AWindowOutsideEveryScreenIsPutOnTheNearestAndTheLogSaysSo) {
    restoreOnto({twoScreens[0]});
    ASSERT_GE(desktop.writes.size(), 2u);
    EXPECT_EQ(desktop.writes[1].attribute, "AXPosition");
    EXPECT_EQ(desktop.writes[1].value, AttrValue(Point{880, 100}));
    EXPECT_NE(log.newText().find("restore Editor: a window outside every screen now put on DP-1"), std::string::npos)
        << log.newText();
    EXPECT_EQ(result.windows, 1);
}

TEST_F(RestoreOntoScreensTest, AnOutputNoScreenCanBeMovesNothing) {
    restoreOnto({{"bogus", Frame{1e300, 0, 1280, 800}}});
    ASSERT_GE(desktop.writes.size(), 2u);
    EXPECT_EQ(desktop.writes[1].value, AttrValue(Point{1500, 100})) << "the frame as recorded";
    EXPECT_EQ(log.newText().find("outside every screen"), std::string::npos);
}

TEST_F(RestoreOntoScreensTest, AWindowOnTheSecondScreenGoesBackThereWhileItIsThere) {
    restoreOnto(twoScreens);
    ASSERT_GE(desktop.writes.size(), 2u);
    EXPECT_EQ(desktop.writes[1].value, AttrValue(Point{1500, 100}));
    EXPECT_EQ(log.newText().find("outside every screen"), std::string::npos);
}

}  // namespace
}  // namespace tarnwick
