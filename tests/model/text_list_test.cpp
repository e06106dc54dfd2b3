// TextList: texts kept end to end in one buffer still read back one by one.
#include "model/text_list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace tarnwick {
namespace {

using namespace std::string_literals;

TEST(TextList, AnEmptyListHasNoTexts) {
    TextList list;
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(list.size(), 0u);
    EXPECT_EQ(list.begin(), list.end());
    EXPECT_EQ(list, TextList{});
    EXPECT_TRUE(list.strings().empty());
}

TEST(TextList, TextsReadBackInOrderWhateverTheyHold) {
    std::vector<std::string> texts = {"https://example.com/", "", "a\0b"s, "日本", ""};
    TextList list(texts);
    ASSERT_EQ(list.size(), texts.size());
    for (size_t i = 0; i < texts.size(); ++i) EXPECT_EQ(list[i], texts[i]) << i;
    EXPECT_EQ(list.front(), "https://example.com/");
    EXPECT_EQ(list.strings(), texts);
    EXPECT_TRUE(std::equal(list.begin(), list.end(), texts.begin(), texts.end()));
    EXPECT_EQ(list.end() - list.begin(), 5);
    EXPECT_EQ(list.begin()[2], "a\0b"s);
}

TEST(TextList, ListsAreEqualOnlyWithTheSameTextsInTheSameOrder) {
    EXPECT_EQ((TextList{"a", "bc"}), (TextList{"a", "bc"}));
    // The same bytes cut in other places are other texts.
    EXPECT_NE((TextList{"ab", "c"}), (TextList{"a", "bc"}));
    EXPECT_NE((TextList{"abc"}), (TextList{"abc", ""}));
    EXPECT_NE((TextList{"", "abc"}), (TextList{"abc", ""}));
    EXPECT_NE((TextList{"b", "a"}), (TextList{"a", "b"}));
}

TEST(TextList, TextsAddedAfterReservingOrCopyingStayApart) {
    TextList list;
    list.reserve(2, 4);
    list.push_back("ab");
    list.push_back("cd");
    // Past what was reserved the buffer grows and the earlier texts move with it.
    list.push_back(std::string(1000, 'x'));
    EXPECT_EQ(list.strings(), (std::vector<std::string>{"ab", "cd", std::string(1000, 'x')}));

    TextList copy = list;
    copy.push_back("e");
    EXPECT_EQ(list.size(), 3u);
    EXPECT_EQ(copy.size(), 4u);
    EXPECT_EQ(copy[3], "e");
    EXPECT_EQ(copy[0], "ab");
}

TEST(TextListDeathTest, TheFirstTextOfAnEmptyListStopsTheProcess) {
    EXPECT_DEATH((void)TextList{}.front(), "the first text of an empty list");
}

}  // namespace
}  // namespace tarnwick
