// Entry::choose: which mode the process arguments ask for.
#include "main/entry.h"

#include <gtest/gtest.h>

namespace tarnwick {
namespace {

using Entry::Mode;

Entry::Choice choose(std::vector<std::string> arguments) { return Entry::choose(arguments); }

TEST(EntryChoose, NoArgumentsStartTheApplication) {
    EXPECT_EQ(choose({"/Applications/Tarnwick.app/Contents/MacOS/Tarnwick"}).mode, Mode::application);
}

TEST(EntryChoose, CaptureAnywhereWinsOverRestore) {
    EXPECT_EQ(choose({"tarnwick", "--restore", "a.json", "--capture"}).mode, Mode::capture);
    EXPECT_EQ(choose({"tarnwick", "--capture", "--restore", "a.json"}).mode, Mode::capture);
}

TEST(EntryChoose, RestoreTakesTheArgumentAfterTheFirstRestore) {
    auto choice = choose({"tarnwick", "-x", "--restore", "first.json", "second.json"});
    EXPECT_EQ(choice.mode, Mode::restore);
    EXPECT_EQ(choice.path, "first.json");
    choice = choose({"tarnwick", "--restore", "--restore", "b.json"});
    EXPECT_EQ(choice.path, "--restore");
}

TEST(EntryChoose, RestoreAsTheLastArgumentStartsTheApplication) {
    EXPECT_EQ(choose({"tarnwick", "--restore"}).mode, Mode::application);
    // Only the first "--restore" counts, even when a later one has a path.
    EXPECT_EQ(choose({"tarnwick", "a", "--restore"}).mode, Mode::application);
}

TEST(EntryChoose, TheProgramPathItselfIsExamined) {
    EXPECT_EQ(choose({"--capture"}).mode, Mode::capture);
    auto choice = choose({"--restore", "x.json"});
    EXPECT_EQ(choice.mode, Mode::restore);
    EXPECT_EQ(choice.path, "x.json");
}

TEST(EntryChoose, ArgumentsMustMatchExactly) {
    EXPECT_EQ(choose({"tarnwick", "--Capture", "-capture", "--capture=yes", "--restore=a.json"}).mode,
              Mode::application);
}

TEST(EntryChoose, TheStoresModesComeAfterCaptureAndRestore) {
    EXPECT_EQ(choose({"tarnwick", "--help"}).mode, Mode::help);
    EXPECT_EQ(choose({"tarnwick", "-h"}).mode, Mode::help);
    EXPECT_EQ(choose({"tarnwick", "--version"}).mode, Mode::version);
    EXPECT_EQ(choose({"tarnwick", "--help", "--capture"}).mode, Mode::capture);
    EXPECT_EQ(choose({"tarnwick", "--list", "--restore", "a.json"}).mode, Mode::restore);
    // The first of them decides.
    EXPECT_EQ(choose({"tarnwick", "--version", "--help"}).mode, Mode::version);
}

TEST(EntryChoose, ListSaveAndDiffTakeWhatFollowsThem) {
    auto list = choose({"tarnwick", "--json", "--list"});
    EXPECT_EQ(list.mode, Mode::list);
    EXPECT_TRUE(list.json);
    EXPECT_FALSE(choose({"tarnwick", "--list"}).json);

    EXPECT_EQ(choose({"tarnwick", "--save"}).reason, "cli");
    EXPECT_EQ(choose({"tarnwick", "--save", "logout"}).reason, "logout");
    EXPECT_EQ(choose({"tarnwick", "--save", "--json"}).reason, "cli") << "an option is not a reason";

    auto diff = choose({"tarnwick", "--diff"});
    EXPECT_EQ(diff.mode, Mode::diff);
    EXPECT_EQ(diff.path, "");
    EXPECT_EQ(choose({"tarnwick", "--diff", "before-boot"}).path, "before-boot");
}

}  // namespace
}  // namespace tarnwick
