// printable(): control characters escaped, everything else left as it is.
#include "model/printable.h"

#include <gtest/gtest.h>

namespace tarnwick {
namespace {

TEST(Printable, PlainTextIsUnchanged) {
    EXPECT_EQ(printable(""), "");
    EXPECT_EQ(printable("Safari \"Start\" ~/src 100%"), "Safari \"Start\" ~/src 100%");
}

TEST(Printable, ValidNonAsciiStaysAsItIs) {
    const std::string text = "Caf\u00E9 \u2014 \u00A0\u00FF \u65E5\u672C \U0001F600 \u2026";
    EXPECT_EQ(printable(text), text);
}

TEST(Printable, CommonControlsGetTheirShortForm) {
    EXPECT_EQ(printable("a\nb\tc\rd"), "a\\nb\\tc\\rd");
}

TEST(Printable, OtherC0ControlsAndDeleteAreUnicodeEscapes) {
    EXPECT_EQ(printable(std::string("Clock\x1b[8m", 9)), "Clock\\u001b[8m");
    EXPECT_EQ(printable(std::string("\0\x01\x07\x08\x0c\x1f\x7f", 7)), "\\u0000\\u0001\\u0007\\u0008\\u000c\\u001f\\u007f");
}

TEST(Printable, C1ControlsAreEscapedAsTheirCodePoint) {
    EXPECT_EQ(printable("a\u0080b\u009Bc\u009F"), "a\\u0080b\\u009bc\\u009f");
    // The first character after them is not a control.
    EXPECT_EQ(printable("\u00A0"), "\u00A0");
}

TEST(Printable, ABackslashIsDoubledSoNoEscapeCanBeForged) {
    EXPECT_EQ(printable("C:\\n"), "C:\\\\n");
    EXPECT_NE(printable("\\u001b"), printable("\x1b"));
}

TEST(Printable, StrayBytesAreEscapedByValue) {
    EXPECT_EQ(printable(std::string("a\x9b" "b\xff\xc3", 5)), "a\\x9bb\\xff\\xc3");
    // An overlong form of ESC is not let through as a character.
    EXPECT_EQ(printable(std::string("\xc0\x9b", 2)), "\\xc0\\x9b");
}

TEST(Printable, TheResultHasNoControlByteAtAll) {
    std::string every;
    for (int byte = 0; byte < 256; ++byte) every += static_cast<char>(byte);
    every += "\u0085\u009c";
    for (char c : printable(every)) {
        auto byte = static_cast<unsigned char>(c);
        EXPECT_FALSE(byte < 0x20 || byte == 0x7F) << int(byte);
        EXPECT_LT(byte, 0x80) << "every byte of the input above 0x7f is stray here, or a C1 control";
    }
}

}  // namespace
}  // namespace tarnwick
