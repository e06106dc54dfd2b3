// parseWindows: the W/T listing of the capture scripts.
#include "scripting/listing.h"

#include <gtest/gtest.h>

namespace tarnwick {
namespace {

std::vector<ScriptedWindow> parse(const std::string& text) {
    auto windows = parseWindows(text);
    EXPECT_TRUE(windows.has_value());
    return windows.value_or(std::vector<ScriptedWindow>{});
}

TEST(ParseWindows, AbsentGivesAbsentEmptyGivesEmpty) {
    EXPECT_EQ(parseWindows(std::nullopt), std::nullopt);
    auto empty = parseWindows(std::string());
    ASSERT_TRUE(empty.has_value());
    EXPECT_TRUE(empty->empty());
}

TEST(ParseWindows, WindowWithFrameItemAndUnclampedIndex) {
    EXPECT_EQ(parse("W\t0;25;800;600\t2\nT\thttps://a.example/\n"),
              (std::vector<ScriptedWindow>{{Frame{0, 25, 800, 575}, {"https://a.example/"}, 2}}));
}

TEST(ParseWindows, WindowLineWithoutTab) {
    EXPECT_EQ(parse("W\nT\t/tmp\n"), (std::vector<ScriptedWindow>{{std::nullopt, {"/tmp"}, 1}}));
    EXPECT_TRUE(parse("W\n").empty());
}

TEST(ParseWindows, WindowLineWithEmptyFields) {
    EXPECT_EQ(parse("W\t\t\nT\tx\n"), (std::vector<ScriptedWindow>{{std::nullopt, {"x"}, 1}}));
}

TEST(ParseWindows, MalformedBoundsAndIndex) {
    EXPECT_EQ(parse("W\t1;2;3\tfirst\nT\tx\n"), (std::vector<ScriptedWindow>{{std::nullopt, {"x"}, 1}}));
    EXPECT_EQ(parse("W\t0;0;5;5\t 2\nT\tx\n"), (std::vector<ScriptedWindow>{{Frame{0, 0, 5, 5}, {"x"}, 1}}));
    EXPECT_EQ(parse("W\t0;0;5;5\t2.0\nT\tx\n")[0].activeIndex, 1);
    EXPECT_EQ(parse("W\t0;0;5;5\t+-2\nT\tx\n")[0].activeIndex, 1);
    EXPECT_EQ(parse("W\t0;0;5;5\t99999999999999999999\nT\tx\n")[0].activeIndex, 1);
}

TEST(ParseWindows, SignedIndices) {
    EXPECT_EQ(parse("W\t\t-3\nT\tx\n")[0].activeIndex, -3);
    EXPECT_EQ(parse("W\t\t+4\nT\tx\n")[0].activeIndex, 4);
    EXPECT_EQ(parse("W\t\t-\nT\tx\n")[0].activeIndex, 1);
}

TEST(ParseWindows, ItemLinesThatAreIgnored) {
    EXPECT_TRUE(parse("T\tbefore any window\n").empty());
    EXPECT_EQ(parse("T\tlost\nW\t\t1\nT\t\nT\nT\tkept\n"), (std::vector<ScriptedWindow>{{std::nullopt, {"kept"}, 1}}));
}

TEST(ParseWindows, WindowWithoutItemsIsDropped) {
    EXPECT_EQ(parse("W\t0;0;1;1\t1\nW\t0;0;2;2\t1\nT\tsecond\n"),
              (std::vector<ScriptedWindow>{{Frame{0, 0, 2, 2}, {"second"}, 1}}));
}

TEST(ParseWindows, ItemKeepsTextBeforeATab) {
    EXPECT_EQ(parse("W\nT\tfirst\tsecond\tthird\n")[0].items, TextList{"first"});
}

TEST(ParseWindows, BlankLinesAndTrailingLineFeedChangeNothing) {
    std::string listing = "W\t0;25;1440;900\t3\nT\ta\nT\tb\nW\t\t1\nT\tc";
    auto expected = parse(listing);
    EXPECT_EQ(parse("\n\n" + listing + "\n"), expected);
    EXPECT_EQ(parse("W\t0;25;1440;900\t3\n\nT\ta\n\n\nT\tb\nW\t\t1\nT\tc\n\n"), expected);
    ASSERT_EQ(expected.size(), 2u);
    EXPECT_EQ(expected[0].items, (TextList{"a", "b"}));
}

TEST(ParseWindows, TagsAreCaseSensitiveAndStandAlone) {
    EXPECT_TRUE(parse("w\t\t1\nT\tx\n").empty());
    EXPECT_TRUE(parse("W \t\t1\nT\tx\n").empty());
    EXPECT_EQ(parse("W\nt\tx\nTT\ty\nT\tz\n")[0].items, TextList{"z"});
}

TEST(ParseWindows, CarriageReturnsAreNotLineBreaks) {
    EXPECT_EQ(parse("W\nT\ta\r\n")[0].items, TextList{"a\r"});
}

}  // namespace
}  // namespace tarnwick
