// Frame: the bounds text the capture scripts print, and the brace text restore scripts send.
#include "model/frame.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace tarnwick {
namespace {

TEST(FrameInit, ReadsFourNumbersAsLeftTopRightBottom) {
    EXPECT_EQ(Frame::init("0;0;100;100"), (Frame{0, 0, 100, 100}));
}

TEST(FrameInit, ZeroWidthGivesNothing) { EXPECT_EQ(Frame::init("10;20;10;50"), std::nullopt); }

TEST(FrameInit, ZeroOrNegativeHeightGivesNothing) {
    EXPECT_EQ(Frame::init("10;20;30;20"), std::nullopt);
    EXPECT_EQ(Frame::init("10;20;30;10"), std::nullopt);
}

TEST(FrameInit, ThreeNumbersGiveNothing) { EXPECT_EQ(Frame::init("1;2;3"), std::nullopt); }

TEST(FrameInit, EmptyTextGivesNothing) { EXPECT_EQ(Frame::init(""), std::nullopt); }

TEST(FrameInit, BlanksAroundPiecesAreTrimmed) {
    EXPECT_EQ(Frame::init(" 10 ; 20 ; 30 ; 40 "), (Frame{10, 20, 20, 20}));
    EXPECT_EQ(Frame::init("\t10\t;20;30;40"), (Frame{10, 20, 20, 20}));
}

TEST(FrameInit, UnreadablePieceIsSkipped) { EXPECT_EQ(Frame::init("1;x;2;3;4"), (Frame{1, 2, 2, 2})); }

TEST(FrameInit, EmptyPieceIsDropped) {
    EXPECT_EQ(Frame::init("1;;2;3;4"), (Frame{1, 2, 2, 2}));
    EXPECT_EQ(Frame::init(";1;2;3;4;"), (Frame{1, 2, 2, 2}));
}

TEST(FrameInit, FiveNumbersGiveNothing) { EXPECT_EQ(Frame::init("1;2;3;4;5"), std::nullopt); }

TEST(FrameInit, DecimalForms) {
    EXPECT_EQ(Frame::init("12.5;-3;1e3;+4"), (Frame{12.5, -3, 1000 - 12.5, 7}));
    EXPECT_EQ(Frame::init("0;25;1440;900"), (Frame{0, 25, 1440, 875}));
}

TEST(FrameInit, PiecesThatAreNotWholeNumbersAreSkipped) {
    // "12px" and a number followed by a line break are not numbers; the rest are.
    EXPECT_EQ(Frame::init("12px;0;0;5;5"), (Frame{0, 0, 5, 5}));
    EXPECT_EQ(Frame::init("4\n;0;0;5;5"), (Frame{0, 0, 5, 5}));
    EXPECT_EQ(Frame::init("0;0;5;5\n"), std::nullopt);
}

TEST(FrameInit, NonFiniteAndHexTextAreNotNumbers) {
    EXPECT_EQ(Frame::init("nan;0;0;5;5"), (Frame{0, 0, 5, 5}));
    EXPECT_EQ(Frame::init("inf;0;0;5;5"), (Frame{0, 0, 5, 5}));
    EXPECT_EQ(Frame::init("0x10;0;0;5;5"), (Frame{0, 0, 5, 5}));
    EXPECT_EQ(Frame::init("0;0;1e999;5"), std::nullopt);
}

TEST(FrameInit, WidthThatOverflowsGivesNothing) { EXPECT_EQ(Frame::init("-1e308;0;1e308;5"), std::nullopt); }

TEST(FrameBounds, TruncatesEachValueAfterTheAddition) {
    EXPECT_EQ((Frame{-0.5, 0, 10.9, 10}).appleScriptBounds(), "{0, 0, 10, 10}");
}

TEST(FrameBounds, ExampleFrame) { EXPECT_EQ((Frame{10, 20, 300.7, 400}).appleScriptBounds(), "{10, 20, 310, 420}"); }

TEST(FrameBounds, NegativeValuesTruncateTowardZero) {
    EXPECT_EQ((Frame{-12.9, -1440, 12.9, 900}).appleScriptBounds(), "{-12, -1440, 0, -540}");
}

TEST(FrameBoundsDeath, NonFiniteValueStopsTheProcess) {
    Frame nan{std::nan(""), 0, 1, 1};
    EXPECT_DEATH((void)nan.appleScriptBounds(), "broken invariant: frame value out of range");
    Frame huge{1e19, 0, 1, 1};
    EXPECT_DEATH((void)huge.appleScriptBounds(), "broken invariant");
}

TEST(FrameEquality, FloatingPointRules) {
    EXPECT_EQ((Frame{0, 0, 1, 1}), (Frame{-0.0, 0, 1, 1}));
    Frame nan{std::nan(""), 0, 1, 1};
    EXPECT_FALSE(nan == nan);
    EXPECT_NE((Frame{0, 0, 1, 1}), (Frame{0, 0, 1, 2}));
}

}  // namespace
}  // namespace tarnwick

namespace tarnwick {
namespace {

TEST(FramePlaceable, OnlyFinitePositionsAndSizesWithinAMillionPoints) {
    EXPECT_TRUE((Frame{-1000, 25, 800, 600}.placeable()));
    EXPECT_TRUE((Frame{1e6, -1e6, 0, 1e6}.placeable()));
    EXPECT_FALSE((Frame{1e300, 0, 800, 600}.placeable()));
    EXPECT_FALSE((Frame{0, -1e300, 800, 600}.placeable()));
    EXPECT_FALSE((Frame{0, 0, 1e300, 600}.placeable()));
    EXPECT_FALSE((Frame{0, 0, 800, -1}.placeable()));
    EXPECT_FALSE((Frame{0, 0, 800, std::numeric_limits<double>::quiet_NaN()}.placeable()));
    EXPECT_FALSE((Frame{std::numeric_limits<double>::infinity(), 0, 800, 600}.placeable()));
}

}  // namespace
}  // namespace tarnwick
