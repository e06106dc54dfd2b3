// classify and the AppKind text forms.
#include "model/app_kind.h"

#include <gtest/gtest.h>

namespace tarnwick {
namespace {

TEST(Classify, AbsentEmptyAndUnknownIdentifiersAreGeneric) {
    EXPECT_EQ(classify(std::nullopt), AppKind::generic);
    EXPECT_EQ(classify(""), AppKind::generic);
    EXPECT_EQ(classify("com.google.Chrome.dev"), AppKind::generic);
}

TEST(Classify, ChromeBetaIsChromium) { EXPECT_EQ(classify("com.google.Chrome.beta"), AppKind::chromium); }

TEST(Classify, EveryRowOfTheTable) {
    EXPECT_EQ(classify("com.apple.Safari"), AppKind::safari);
    EXPECT_EQ(classify("com.apple.finder"), AppKind::finder);
    EXPECT_EQ(classify("com.apple.Terminal"), AppKind::terminal);
    EXPECT_EQ(classify("com.googlecode.iterm2"), AppKind::iterm);
    for (const char* id : {"com.google.Chrome", "com.google.Chrome.beta", "com.brave.Browser", "com.microsoft.edgemac",
                           "company.thebrowser.Browser", "com.vivaldi.Vivaldi"})
        EXPECT_EQ(classify(std::string(id)), AppKind::chromium) << id;
}

TEST(Classify, NoPrefixOrCaseFolding) {
    EXPECT_EQ(classify("com.google.Chrome.canary"), AppKind::generic);
    EXPECT_EQ(classify("com.apple.safari"), AppKind::generic);
    EXPECT_EQ(classify("com.apple.Safari "), AppKind::generic);
}

TEST(AppKindText, RoundTripsAllSixAndRejectsOthers) {
    for (AppKind kind : {AppKind::generic, AppKind::chromium, AppKind::safari, AppKind::finder, AppKind::terminal,
                         AppKind::iterm})
        EXPECT_EQ(appKindFrom(toString(kind)), kind);
    EXPECT_EQ(toString(AppKind::iterm), "iterm");
    EXPECT_EQ(appKindFrom("opera"), std::nullopt);
    EXPECT_EQ(appKindFrom("Generic"), std::nullopt);
    EXPECT_EQ(appKindFrom(""), std::nullopt);
}

}  // namespace
}  // namespace tarnwick
