// The simulated desktop itself: state, writes, launches, faults and its clock.
#include "support/sim_desktop.h"

#include <gtest/gtest.h>

#include <chrono>

namespace tarnwick {
namespace {

using testing::LaunchFault;
using testing::ScopedPlatform;
using testing::SimAppSpec;
using testing::SimDesktop;
using testing::SimWindow;
using testing::appSpec;

SimAppSpec editor() {
    SimAppSpec spec = appSpec("com.example.Editor", "/Applications/Editor.app", "Editor");
    SimWindow first;
    first.title = "First";
    first.appearsAfter = 2.0;
    SimWindow second;
    second.title = "Second";
    second.appearsAfter = 3.0;
    spec.windowsOnLaunch = {first, second};
    spec.launchDelay = 0.5;
    spec.finishedAfter = 1.0;
    return spec;
}

std::string titleOf(SimDesktop& desktop, const Element& element) {
    auto value = desktop.copyAttribute(element, "AXTitle");
    if (!value || !std::holds_alternative<std::string>(*value)) return "<none>";
    return std::get<std::string>(*value);
}

std::vector<std::string> listedTitles(SimDesktop& desktop, std::int32_t pid) {
    std::vector<std::string> titles;
    auto listed = desktop.copyAttribute(desktop.applicationElement(pid), "AXWindows");
    if (!listed) return titles;
    for (const Element& element : std::get<std::vector<Element>>(*listed)) titles.push_back(titleOf(desktop, element));
    return titles;
}

class SimDesktopTest : public ::testing::Test {
protected:
    SimDesktop desktop;
    ScopedPlatform installed{desktop};
};

TEST_F(SimDesktopTest, ClockMovesOnlyWhenTheCodeSleeps) {
    auto pid = desktop.startApp(editor());
    desktop.addWindow(pid, SimWindow{});
    listedTitles(desktop, pid);
    desktop.runningApplications();
    EXPECT_EQ(desktop.monotonicSeconds(), 0.0);
    EXPECT_EQ(desktop.currentDate(), desktop.startDate);
    desktop.sleep(1.5);
    desktop.sleep(0.25);
    EXPECT_EQ(desktop.monotonicSeconds(), 1.75);
    EXPECT_EQ(desktop.currentDate(), desktop.startDate + std::chrono::milliseconds(1750));
    EXPECT_EQ(desktop.sleeps, (std::vector<double>{1.5, 0.25}));
    EXPECT_EQ(desktop.calls("sleep"), 2);
}

TEST_F(SimDesktopTest, WritesChangeWhatLaterReadsSee) {
    auto pid = desktop.startApp(editor());
    SimWindow window;
    window.title = "Notes";
    auto id = desktop.addWindow(pid, window);
    auto element = std::get<std::vector<Element>>(*desktop.copyAttribute(desktop.applicationElement(pid), "AXWindows"))[0];
    desktop.setAttribute(element, "AXPosition", Point{5, 6});
    desktop.setAttribute(element, "AXSize", Size{700, 500});
    desktop.setAttribute(element, "AXMinimized", true);
    desktop.setAttribute(element, "AXFullScreen", true);
    EXPECT_EQ(desktop.window(id).frame, (Frame{5, 6, 700, 500}));
    EXPECT_TRUE(desktop.window(id).minimized);
    EXPECT_TRUE(desktop.window(id).fullScreen);
    EXPECT_EQ(*desktop.copyAttribute(element, "AXPosition"), AttrValue(Point{5, 6}));
    EXPECT_EQ(*desktop.copyAttribute(element, "AXSize"), AttrValue(Size{700, 500}));
    // A value of the wrong kind is recorded but changes nothing.
    desktop.setAttribute(element, "AXPosition", std::string("5,6"));
    EXPECT_EQ(desktop.window(id).frame, (Frame{5, 6, 700, 500}));
    EXPECT_EQ(desktop.writes.size(), 5u);
    EXPECT_EQ(desktop.calls("setAttribute:AXPosition"), 2);
}

TEST_F(SimDesktopTest, LaunchedApplicationFinishesLaunchingAndShowsWindowsAfterItsDelays) {
    desktop.install(editor());
    auto app = desktop.openApplication("/Applications/Editor.app", 30, nullptr);
    ASSERT_TRUE(app.has_value());
    EXPECT_EQ(desktop.now(), 0.5);
    AppInfo info = desktop.appInfo(*app);
    EXPECT_EQ(info.bundleID, "com.example.Editor");
    EXPECT_EQ(info.bundlePath, "/Applications/Editor.app");
    EXPECT_FALSE(info.finishedLaunching);
    EXPECT_TRUE(listedTitles(desktop, info.pid).empty());

    desktop.sleep(0.5);
    EXPECT_TRUE(desktop.appInfo(*app).finishedLaunching);
    desktop.sleep(1.0);
    EXPECT_EQ(listedTitles(desktop, info.pid), (std::vector<std::string>{"First"}));
    desktop.sleep(1.0);
    EXPECT_EQ(listedTitles(desktop, info.pid), (std::vector<std::string>{"First", "Second"}));
}

TEST_F(SimDesktopTest, OpeningARunningApplicationHandsItBack) {
    auto pid = desktop.startApp(editor());
    auto app = desktop.openApplication("/Applications/Editor.app", 30, nullptr);
    ASSERT_TRUE(app.has_value());
    EXPECT_EQ(desktop.appInfo(*app).pid, pid);
    EXPECT_EQ(desktop.runningApplications().size(), 1u);
}

TEST_F(SimDesktopTest, HangingLaunchCostsTheWholeTimeOut) {
    SimAppSpec spec = editor();
    spec.fault = LaunchFault::hang;
    desktop.install(spec);
    EXPECT_FALSE(desktop.openApplication("/Applications/Editor.app", 30, nullptr).has_value());
    EXPECT_EQ(desktop.now(), 30.0);
}

TEST_F(SimDesktopTest, RefusedLaunchReportsAnErrorAtOnce) {
    SimAppSpec spec = editor();
    spec.fault = LaunchFault::refuse;
    desktop.install(spec);
    std::vector<std::string> errors;
    auto app = desktop.openApplication("/Applications/Editor.app", 30,
                                       [&](const std::string& error) { errors.push_back(error); });
    EXPECT_FALSE(app.has_value());
    EXPECT_EQ(errors, (std::vector<std::string>{"The application \"Editor.app\" could not be launched."}));
    EXPECT_EQ(desktop.now(), 0.0);
    EXPECT_TRUE(desktop.runningApplications().empty());
}

TEST_F(SimDesktopTest, LaunchOfAMissingBundleReportsAnError) {
    std::vector<std::string> errors;
    EXPECT_FALSE(desktop.openApplication("/Applications/Nowhere.app", 30,
                                         [&](const std::string& error) { errors.push_back(error); }));
    EXPECT_EQ(errors.size(), 1u);
}

TEST_F(SimDesktopTest, LaunchAnsweringAfterTheTimeOutStillStartsTheApplication) {
    SimAppSpec spec = editor();
    spec.launchDelay = 45;
    desktop.install(spec);
    EXPECT_FALSE(desktop.openApplication("/Applications/Editor.app", 30, nullptr).has_value());
    EXPECT_EQ(desktop.now(), 30.0);
    EXPECT_TRUE(desktop.pidOf("com.example.Editor").has_value());
}

TEST_F(SimDesktopTest, OpenedDocumentsBecomeWindowsAfterTheirDelay) {
    auto pid = desktop.startApp(editor());
    desktop.openDocuments({"file:///Users/tester/a.txt", "file:///Users/tester/b.txt"}, "/Applications/Editor.app", 20,
                          nullptr);
    EXPECT_TRUE(listedTitles(desktop, pid).empty());
    desktop.sleep(0.5);
    auto windows = desktop.visibleWindows(pid);
    ASSERT_EQ(windows.size(), 2u);
    EXPECT_EQ(desktop.window(windows[0]).document, "file:///Users/tester/a.txt");
    EXPECT_EQ(desktop.window(windows[1]).title, "b.txt");
}

TEST_F(SimDesktopTest, RefusedDocumentsReportAnError) {
    SimAppSpec spec = editor();
    spec.refusesDocuments = true;
    auto pid = desktop.startApp(spec);
    std::vector<std::string> errors;
    desktop.openDocuments({"file:///x"}, "/Applications/Editor.app", 20,
                          [&](const std::string& error) { errors.push_back(error); });
    desktop.sleep(5);
    EXPECT_EQ(errors.size(), 1u);
    EXPECT_TRUE(desktop.visibleWindows(pid).empty());
}

TEST_F(SimDesktopTest, FaultsMakeReadsFail) {
    auto pid = desktop.startApp(editor());
    SimWindow window;
    window.title = "Locked";
    window.unreadable.insert("AXTitle");
    window.overrides["AXSize"] = OtherValue{};
    desktop.addWindow(pid, window);
    auto element = std::get<std::vector<Element>>(*desktop.copyAttribute(desktop.applicationElement(pid), "AXWindows"))[0];
    EXPECT_EQ(desktop.copyAttribute(element, "AXTitle"), std::nullopt);
    EXPECT_EQ(desktop.copyAttribute(element, "AXSize"), AttrValue(OtherValue{}));

    desktop.app(pid).answersWindowList = false;
    EXPECT_EQ(desktop.copyAttribute(desktop.applicationElement(pid), "AXWindows"), std::nullopt);
    desktop.trusted = false;
    EXPECT_EQ(desktop.copyAttribute(element, "AXPosition"), std::nullopt);
}

TEST_F(SimDesktopTest, TokenLookupAnswersOnlyWellFormedTokensForLiveWindows) {
    auto pid = desktop.startApp(editor());
    SimWindow window;
    window.tokenIds = {17};
    window.listed = false;
    auto id = desktop.addWindow(pid, window);
    RemoteToken token{};
    auto put = [&](size_t offset, std::uint64_t value, size_t width) {
        for (size_t i = 0; i < width; ++i) token[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
    };
    put(0, static_cast<std::uint32_t>(pid), 4);
    put(8, 0x636F636F, 4);
    put(12, 17, 8);
    Element found = desktop.elementForRemoteToken(token);
    ASSERT_TRUE(static_cast<bool>(found));
    EXPECT_TRUE(desktop.sameElement(found, desktop.elementForRemoteToken(token)));

    RemoteToken otherId = token;
    otherId[12] = 18;
    EXPECT_FALSE(static_cast<bool>(desktop.elementForRemoteToken(otherId)));
    RemoteToken badMagic = token;
    badMagic[8] = 0;
    EXPECT_FALSE(static_cast<bool>(desktop.elementForRemoteToken(badMagic)));
    RemoteToken reserved = token;
    reserved[5] = 1;
    EXPECT_FALSE(static_cast<bool>(desktop.elementForRemoteToken(reserved)));

    desktop.closeWindow(id);
    EXPECT_FALSE(static_cast<bool>(desktop.elementForRemoteToken(token)));
    EXPECT_EQ(desktop.calls("elementForRemoteToken"), 6);
}

TEST_F(SimDesktopTest, QuitApplicationLeavesTheListAndReportsTerminated) {
    auto pid = desktop.startApp(editor());
    desktop.frontmost = pid;
    auto app = desktop.runningApplications().at(0);
    desktop.quit(pid);
    EXPECT_TRUE(desktop.runningApplications().empty());
    EXPECT_TRUE(desktop.runningApplications("com.example.Editor").empty());
    EXPECT_TRUE(desktop.appInfo(app).terminated);
    EXPECT_FALSE(desktop.frontmostApplication().has_value());
}

TEST_F(SimDesktopTest, ApplicationsAreListedInLaunchOrderWithWhatTheySayOfThemselves) {
    SimAppSpec helper = appSpec("com.example.Helper", "/Applications/Helper.app", std::nullopt);
    helper.policy = ActivationPolicy::accessory;
    auto first = desktop.startApp(editor());
    auto second = desktop.startApp(helper);
    auto running = desktop.runningApplications();
    ASSERT_EQ(running.size(), 2u);
    EXPECT_EQ(desktop.appInfo(running[0]).pid, first);
    AppInfo info = desktop.appInfo(running[1]);
    EXPECT_EQ(info.pid, second);
    EXPECT_EQ(info.policy, ActivationPolicy::accessory);
    EXPECT_EQ(info.name, std::nullopt);
    EXPECT_TRUE(info.finishedLaunching);
    EXPECT_EQ(desktop.runningApplications("com.example.Helper").size(), 1u);
}

TEST_F(SimDesktopTest, HideAndActivateChangeTheApplication) {
    auto pid = desktop.startApp(editor());
    auto app = desktop.runningApplications().at(0);
    desktop.hide(app);
    EXPECT_TRUE(desktop.appInfo(app).hidden);
    desktop.activate(app);
    EXPECT_FALSE(desktop.appInfo(app).hidden);
    EXPECT_EQ(desktop.activations, (std::vector<std::int32_t>{pid}));
    ASSERT_TRUE(desktop.frontmostApplication().has_value());
    EXPECT_EQ(desktop.appInfo(*desktop.frontmostApplication()).pid, pid);
}

TEST_F(SimDesktopTest, InstalledBundlesAreFilesAndResolveByIdentifier) {
    desktop.install(editor());
    EXPECT_TRUE(desktop.fileExists("/Applications/Editor.app"));
    EXPECT_EQ(desktop.applicationPath("com.example.Editor"), "/Applications/Editor.app");
    EXPECT_EQ(desktop.applicationPath("com.example.Missing"), std::nullopt);
    desktop.removeFile("/Applications/Editor.app");
    EXPECT_FALSE(desktop.fileExists("/Applications/Editor.app"));
    EXPECT_EQ(desktop.applicationPath("com.example.Editor"), std::nullopt);
    desktop.addFile("/Users/tester/Projects");
    EXPECT_TRUE(desktop.fileExists("/Users/tester/Projects"));
}

TEST_F(SimDesktopTest, OwnIdentifierAndHomeAreWhatTheTestSets) {
    EXPECT_EQ(desktop.ownBundleIdentifier(), "com.tarnwick.Tarnwick");
    desktop.ownBundleID.reset();
    EXPECT_EQ(desktop.ownBundleIdentifier(), std::nullopt);
    desktop.home = "/Users/someone";
    EXPECT_EQ(platform().homeDirectory(), "/Users/someone");
}

}  // namespace
}  // namespace tarnwick
