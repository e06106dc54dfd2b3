// AXO against the simulated desktop: window listing, frames, writes and state.
#include "access/axo.h"
#include "support/sim_desktop.h"

#include <gtest/gtest.h>

namespace tarnwick {
namespace {

using testing::ScopedPlatform;
using testing::SimAppSpec;
using testing::SimDesktop;
using testing::SimWindow;

class AXOTest : public ::testing::Test {
protected:
    SimDesktop desktop;
    ScopedPlatform installed{desktop};
    std::int32_t pid = desktop.startApp(testing::appSpec("com.example.Editor", "/Applications/Editor.app", "Editor"));

    SimWindow titled(const std::string& title, std::vector<std::uint64_t> tokenIds = {}) {
        SimWindow window;
        window.title = title;
        window.tokenIds = std::move(tokenIds);
        return window;
    }

    // The titles of the listed windows, in order, to compare whole lists at once.
    std::vector<std::string> titles(const std::vector<Element>& windows) {
        std::vector<std::string> names;
        for (const Element& window : windows) names.push_back(AXO::state(window).title.value_or("<none>"));
        return names;
    }

    // The element the simulator hands out for a window, found by title.
    Element elementTitled(const std::string& title) {
        for (const Element& window : AXO::windows(pid))
            if (AXO::state(window).title == title) return window;
        ADD_FAILURE() << "no window titled " << title;
        return Element();
    }
};

std::vector<std::uint8_t> bytes(const RemoteToken& token) { return {token.begin(), token.end()}; }

TEST_F(AXOTest, TokenIsTwentyLittleEndianBytesOfPidZeroMagicAndElementId) {
    EXPECT_EQ(bytes(AXO::remoteToken(501, 999)),
              (std::vector<std::uint8_t>{0xF5, 0x01, 0x00, 0x00,  // pid 501
                                         0x00, 0x00, 0x00, 0x00,  // reserved
                                         0x6F, 0x63, 0x6F, 0x63,  // magic 0x636F636F
                                         0xE7, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}));  // id 999
    EXPECT_EQ(bytes(AXO::remoteToken(0x12345678, 0x0102030405060708)),
              (std::vector<std::uint8_t>{0x78, 0x56, 0x34, 0x12, 0, 0, 0, 0, 0x6F, 0x63, 0x6F, 0x63,
                                         0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01}));
    // A pid is signed: -2 is written in two's complement.
    EXPECT_EQ(bytes(AXO::remoteToken(-2, 0)),
              (std::vector<std::uint8_t>{0xFE, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0x6F, 0x63, 0x6F, 0x63, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(AXOTest, WindowsTriesEveryElementIdFromZeroToNineHundredNinetyNineInOrder) {
    desktop.addWindow(pid, titled("Found early", {0}));
    desktop.tokens.clear();
    AXO::windows(pid);
    ASSERT_EQ(desktop.tokens.size(), 1000u);
    for (std::uint64_t id = 0; id < 1000; ++id) EXPECT_EQ(desktop.tokens[id], AXO::remoteToken(pid, id)) << id;
}

TEST_F(AXOTest, WindowsSetsTwoSecondsOnTheApplicationAndHalfASecondOnEachTokenElement) {
    auto first = desktop.addWindow(pid, titled("First", {3}));
    auto second = desktop.addWindow(pid, titled("Second", {8}));
    AXO::windows(pid);
    ASSERT_EQ(desktop.timeouts.size(), 3u);
    EXPECT_EQ(desktop.timeouts[0].windowId, 0u);
    EXPECT_EQ(desktop.timeouts[0].pid, pid);
    EXPECT_EQ(desktop.timeouts[0].seconds, 2.0f);
    EXPECT_EQ(desktop.timeouts[1].windowId, first);
    EXPECT_EQ(desktop.timeouts[1].seconds, 0.5f);
    EXPECT_EQ(desktop.timeouts[2].windowId, second);
    EXPECT_EQ(desktop.timeouts[2].seconds, 0.5f);
}

TEST_F(AXOTest, FailedWindowListStillYieldsTokenWindowsByElementId) {
    desktop.addWindow(pid, titled("Three hundred", {300}));
    desktop.addWindow(pid, titled("Twelve", {12}));
    desktop.addWindow(pid, titled("Seventy-seven", {77}));
    desktop.app(pid).answersWindowList = false;
    EXPECT_EQ(titles(AXO::windows(pid)), (std::vector<std::string>{"Twelve", "Seventy-seven", "Three hundred"}));
}

TEST_F(AXOTest, WindowInBothListsIsReturnedOnceAtItsListPosition) {
    desktop.addWindow(pid, titled("Listed A", {5}));
    desktop.addWindow(pid, titled("Listed B", {2}));
    SimWindow elsewhere = titled("Other Space", {1});
    elsewhere.listed = false;
    desktop.addWindow(pid, elsewhere);
    EXPECT_EQ(titles(AXO::windows(pid)), (std::vector<std::string>{"Listed A", "Listed B", "Other Space"}));
}

TEST_F(AXOTest, WindowAnsweringToSeveralTokensIsKeptOnce) {
    SimWindow elsewhere = titled("Other Space", {4, 9, 600});
    elsewhere.listed = false;
    desktop.addWindow(pid, elsewhere);
    desktop.addWindow(pid, titled("Listed", {1}));
    EXPECT_EQ(titles(AXO::windows(pid)), (std::vector<std::string>{"Listed", "Other Space"}));
}

TEST_F(AXOTest, WindowsNotOfStandardSubroleAreLeftOut) {
    desktop.addWindow(pid, titled("Document"));
    SimWindow dialog = titled("Save changes?");
    dialog.subrole = "AXDialog";
    desktop.addWindow(pid, dialog);
    SimWindow unreadable = titled("Mystery");
    unreadable.unreadable.insert("AXSubrole");
    desktop.addWindow(pid, unreadable);
    SimWindow oddlyTyped = titled("Odd");
    oddlyTyped.overrides["AXSubrole"] = OtherValue{};
    desktop.addWindow(pid, oddlyTyped);
    SimWindow noSubrole = titled("Bare");
    noSubrole.subrole.reset();
    desktop.addWindow(pid, noSubrole);
    SimWindow panel = titled("Inspector");
    panel.subrole = "AXFloatingWindow";
    panel.listed = false;
    desktop.addWindow(pid, panel);
    EXPECT_EQ(titles(AXO::windows(pid)), (std::vector<std::string>{"Document"}));
}

TEST_F(AXOTest, WindowListOfSomethingOtherThanElementsCountsAsEmpty) {
    SimWindow listedOnly = titled("Listed only");
    listedOnly.reachableByToken = false;
    desktop.addWindow(pid, listedOnly);
    SimWindow tokenOnly = titled("By token only", {6});
    tokenOnly.listed = false;
    desktop.addWindow(pid, tokenOnly);
    EXPECT_EQ(titles(AXO::windows(pid)), (std::vector<std::string>{"Listed only", "By token only"}));

    desktop.app(pid).windowListValue = OtherValue{};
    EXPECT_EQ(titles(AXO::windows(pid)), (std::vector<std::string>{"By token only"}));
    desktop.app(pid).windowListValue = std::string("AXWindow");
    EXPECT_EQ(titles(AXO::windows(pid)), (std::vector<std::string>{"By token only"}));
}

TEST_F(AXOTest, ApplicationWithoutWindowsReadsNoSubroles) {
    EXPECT_TRUE(AXO::windows(pid).empty());
    EXPECT_EQ(desktop.calls("copyAttribute:AXWindows"), 1);
    EXPECT_EQ(desktop.calls("copyAttribute:AXSubrole"), 0);
}

TEST_F(AXOTest, UntrustedProcessSeesNoWindowsAndEmptyStates) {
    auto id = desktop.addWindow(pid, titled("Secret"));
    desktop.window(id).minimized = true;
    Element element = elementTitled("Secret");
    desktop.trusted = false;
    EXPECT_FALSE(AXO::trusted());
    EXPECT_TRUE(AXO::windows(pid).empty());
    // Every read fails: nothing but absent values and false.
    EXPECT_EQ(AXO::state(element), WindowState{});
}

TEST_F(AXOTest, QuitApplicationHasNoWindows) {
    desktop.addWindow(pid, titled("Gone soon"));
    desktop.quit(pid);
    EXPECT_TRUE(AXO::windows(pid).empty());
}

TEST_F(AXOTest, FrameCombinesPositionAndSize) {
    SimWindow window = titled("Placed");
    window.frame = Frame{-1440.5, 25, 1280, 775.25};
    desktop.addWindow(pid, window);
    EXPECT_EQ(AXO::frame(elementTitled("Placed")), (Frame{-1440.5, 25, 1280, 775.25}));
}

TEST_F(AXOTest, FrameWithPositionButNoSizeIsAbsent) {
    SimWindow window = titled("No size");
    window.unreadable.insert("AXSize");
    desktop.addWindow(pid, window);
    Element element = elementTitled("No size");
    EXPECT_TRUE(AXO::attr(element, "AXPosition").has_value());
    EXPECT_EQ(AXO::frame(element), std::nullopt);
}

TEST_F(AXOTest, FrameWithoutPositionIsAbsentAndSizeIsNotRead) {
    SimWindow window = titled("No position");
    window.unreadable.insert("AXPosition");
    desktop.addWindow(pid, window);
    Element element = elementTitled("No position");
    int sizeReads = desktop.calls("copyAttribute:AXSize");
    EXPECT_EQ(AXO::frame(element), std::nullopt);
    EXPECT_EQ(desktop.calls("copyAttribute:AXSize"), sizeReads);
}

TEST_F(AXOTest, FrameOfValuesOfTheWrongKindIsAbsent) {
    SimWindow swapped = titled("Swapped");
    swapped.overrides["AXPosition"] = Size{10, 20};
    desktop.addWindow(pid, swapped);
    SimWindow textual = titled("Textual");
    textual.overrides["AXSize"] = std::string("800x600");
    desktop.addWindow(pid, textual);
    EXPECT_EQ(AXO::frame(elementTitled("Swapped")), std::nullopt);
    EXPECT_EQ(AXO::frame(elementTitled("Textual")), std::nullopt);
}

TEST_F(AXOTest, SetFrameWritesSizePositionSizeAndMovesTheWindow) {
    desktop.addWindow(pid, titled("Moving"));
    Element element = elementTitled("Moving");
    desktop.writes.clear();
    AXO::setFrame(element, Frame{30, 40, 1024, 700});
    ASSERT_EQ(desktop.writes.size(), 3u);
    EXPECT_EQ(desktop.writes[0].attribute, "AXSize");
    EXPECT_EQ(desktop.writes[0].value, AttrValue(Size{1024, 700}));
    EXPECT_EQ(desktop.writes[1].attribute, "AXPosition");
    EXPECT_EQ(desktop.writes[1].value, AttrValue(Point{30, 40}));
    EXPECT_EQ(desktop.writes[2].attribute, "AXSize");
    EXPECT_EQ(desktop.writes[2].value, AttrValue(Size{1024, 700}));
    EXPECT_EQ(AXO::frame(element), (Frame{30, 40, 1024, 700}));
}

TEST_F(AXOTest, SetFrameStillWritesThreeTimesWhenTheWindowRefuses) {
    SimWindow stubborn = titled("Fixed");
    stubborn.unreadable = {"AXSize", "AXPosition"};
    desktop.addWindow(pid, stubborn);
    Element element = elementTitled("Fixed");
    desktop.writes.clear();
    AXO::setFrame(element, Frame{1, 2, 3, 4});
    ASSERT_EQ(desktop.writes.size(), 3u);
    EXPECT_EQ(desktop.writes.front().attribute, "AXSize");
    EXPECT_EQ(desktop.writes.back().attribute, "AXSize");
}

TEST_F(AXOTest, SetBoolWritesTheFlag) {
    desktop.addWindow(pid, titled("Flags"));
    Element element = elementTitled("Flags");
    AXO::setBool(element, "AXMinimized", true);
    AXO::setBool(element, "AXFullScreen", true);
    EXPECT_TRUE(AXO::state(element).minimized);
    EXPECT_TRUE(AXO::state(element).fullScreen);
    AXO::setBool(element, "AXMinimized", false);
    EXPECT_FALSE(AXO::state(element).minimized);
    EXPECT_EQ(desktop.writes.back().value, AttrValue(false));
}

TEST_F(AXOTest, StateReadsEveryField) {
    SimWindow window = titled("Report.pages");
    window.document = "file:///Users/tester/Report.pages";
    window.frame = Frame{10, 20, 300, 400};
    window.minimized = true;
    window.fullScreen = true;
    desktop.addWindow(pid, window);
    WindowState state = AXO::state(elementTitled("Report.pages"));
    EXPECT_EQ(state, (WindowState{"Report.pages", "file:///Users/tester/Report.pages", Frame{10, 20, 300, 400}, true,
                                  true}));
}

TEST_F(AXOTest, StateWithoutTitleHasAbsentTitleAndUnreadableMinimizedIsFalse) {
    SimWindow window;  // no title, no document
    window.minimized = true;
    window.unreadable.insert("AXMinimized");
    desktop.addWindow(pid, window);
    std::vector<Element> windows = AXO::windows(pid);
    ASSERT_EQ(windows.size(), 1u);
    WindowState state = AXO::state(windows[0]);
    EXPECT_EQ(state.title, std::nullopt);
    EXPECT_NE(state.title, std::optional<std::string>(""));
    EXPECT_EQ(state.document, std::nullopt);
    EXPECT_FALSE(state.minimized);
}

TEST_F(AXOTest, StateTreatsValuesOfTheWrongTypeAsAbsentOrFalse) {
    SimWindow window = titled("ignored");
    window.overrides["AXTitle"] = OtherValue{};
    window.overrides["AXDocument"] = true;
    window.overrides["AXMinimized"] = std::string("yes");
    window.overrides["AXFullScreen"] = OtherValue{};
    desktop.addWindow(pid, window);
    std::vector<Element> windows = AXO::windows(pid);
    ASSERT_EQ(windows.size(), 1u);
    WindowState state = AXO::state(windows[0]);
    EXPECT_EQ(state.title, std::nullopt);
    EXPECT_EQ(state.document, std::nullopt);
    EXPECT_FALSE(state.minimized);
    EXPECT_FALSE(state.fullScreen);
    EXPECT_TRUE(state.frame.has_value());
}

TEST_F(AXOTest, StateOfClosedWindowIsEmpty) {
    auto id = desktop.addWindow(pid, titled("Closing"));
    Element element = elementTitled("Closing");
    desktop.closeWindow(id);
    EXPECT_EQ(AXO::state(element), WindowState{});
}

TEST_F(AXOTest, TrustAndPromptGoToThePlatform) {
    EXPECT_TRUE(AXO::trusted());
    AXO::promptForTrust();
    EXPECT_EQ(desktop.calls("promptForAccessibilityTrust"), 1);
    desktop.trusted = false;
    EXPECT_FALSE(AXO::trusted());
}

TEST_F(AXOTest, AttrOfEmptyHandleIsAbsentWithoutAsking) {
    int reads = desktop.calls("copyAttribute:AXTitle");
    EXPECT_EQ(AXO::attr(Element(), "AXTitle"), std::nullopt);
    EXPECT_EQ(desktop.calls("copyAttribute:AXTitle"), reads);
}

}  // namespace
}  // namespace tarnwick

namespace tarnwick {
namespace {

TEST_F(AXOTest, TheWindowManagersStatesIncludeTheOutputByName) {
    SimWindow window = titled("Doc");
    window.overrides["TWWorkspace"] = std::int64_t{1};
    window.overrides["TWOutput"] = std::string("DP-2");
    desktop.addWindow(pid, window);
    WindowState state = AXO::state(elementTitled("Doc"));
    AXO::addWindowManagerState(elementTitled("Doc"), state);
    EXPECT_EQ(state.workspace, 1);
    EXPECT_EQ(state.output, "DP-2");
}

TEST_F(AXOTest, AnOutputThatIsNoNameIsNotRecorded) {
    SimWindow unnamed = titled("Empty");
    unnamed.overrides["TWOutput"] = std::string();
    desktop.addWindow(pid, unnamed);
    SimWindow numbered = titled("Numbered");
    numbered.overrides["TWOutput"] = std::int64_t{1};
    desktop.addWindow(pid, numbered);
    for (const char* title : {"Empty", "Numbered"}) {
        WindowState state = AXO::state(elementTitled(title));
        AXO::addWindowManagerState(elementTitled(title), state);
        EXPECT_EQ(state.output, std::nullopt) << title;
    }
}

}  // namespace
}  // namespace tarnwick
