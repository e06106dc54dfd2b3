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
    // It counts as absent: what comes before it decides.
    EXPECT_EQ(choose({"tarnwick", "--list", "--restore"}).mode, Mode::list);
    EXPECT_EQ(choose({"tarnwick", "a", "--restore"}).mode, Mode::usage);
}

TEST(EntryChoose, TrustGoesWithARestoreOrADiffOnly) {
    EXPECT_FALSE(choose({"tarnwick", "--restore", "a.json"}).trust);
    EXPECT_TRUE(choose({"tarnwick", "--restore", "a.json", "--trust"}).trust);
    EXPECT_TRUE(choose({"tarnwick", "--trust", "--restore", "a.json"}).trust);
    auto diff = choose({"tarnwick", "--diff", "a.json", "--trust"});
    EXPECT_EQ(diff.mode, Mode::diff);
    EXPECT_EQ(diff.path, "a.json");
    EXPECT_TRUE(diff.trust);
    for (auto arguments : std::vector<std::vector<std::string>>{{"tarnwick", "--trust"},
                                                                {"tarnwick", "--list", "--trust"},
                                                                {"tarnwick", "--save", "--trust"}}) {
        auto choice = choose(arguments);
        EXPECT_EQ(choice.mode, Mode::usage) << arguments.back();
        EXPECT_EQ(choice.problem, "--trust goes with --restore or --diff; tarnwick --help lists the modes");
    }
}

TEST(EntryChoose, TheProgramPathItselfIsExamined) {
    EXPECT_EQ(choose({"--capture"}).mode, Mode::capture);
    auto choice = choose({"--restore", "x.json"});
    EXPECT_EQ(choice.mode, Mode::restore);
    EXPECT_EQ(choice.path, "x.json");
}

TEST(EntryChoose, ArgumentsMustMatchExactly) {
    for (const char* argument : {"--Capture", "-capture", "--capture=yes", "--restore=a.json", "--restore=",
                                 "--lsit", "-v", "--", "-"}) {
        auto choice = choose({"tarnwick", argument});
        EXPECT_EQ(choice.mode, Mode::usage) << argument;
        EXPECT_EQ(choice.problem,
                  std::string("unknown option \"") + argument + "\"; tarnwick --help lists the modes");
    }
}

TEST(EntryChoose, AStrayWordIsAUsageErrorNotTheApplication) {
    auto choice = choose({"tarnwick", "list"});
    EXPECT_EQ(choice.mode, Mode::usage);
    EXPECT_EQ(choice.problem, "unexpected argument \"list\"; tarnwick --help lists the modes");
    EXPECT_EQ(choose({"tarnwick", ""}).mode, Mode::usage);
    // Also beside a mode that would run: nothing runs on a mistyped line.
    EXPECT_EQ(choose({"tarnwick", "--list", "extra"}).mode, Mode::usage);
    EXPECT_EQ(choose({"tarnwick", "--version", "--lsit"}).mode, Mode::usage);
    EXPECT_EQ(choose({"tarnwick", "--save", "logout", "again"}).problem,
              "unexpected argument \"again\"; tarnwick --help lists the modes");
}

TEST(EntryChoose, TheOffendingArgumentIsNamedPrintably) {
    EXPECT_EQ(choose({"tarnwick", "--x\x1b[2J\n"}).problem,
              "unknown option \"--x\\u001b[2J\\n\"; tarnwick --help lists the modes");
}

TEST(EntryChoose, AnEmptySnapshotNameOrReasonIsAUsageError) {
    auto restore = choose({"tarnwick", "--restore", ""});
    EXPECT_EQ(restore.mode, Mode::usage);
    EXPECT_EQ(restore.problem, "empty snapshot name after --restore; tarnwick --help lists the modes");
    EXPECT_EQ(choose({"tarnwick", "--restore", "", "a.json"}).mode, Mode::usage);
    auto diff = choose({"tarnwick", "--diff", ""});
    EXPECT_EQ(diff.mode, Mode::usage);
    EXPECT_EQ(diff.problem, "empty snapshot name after --diff; tarnwick --help lists the modes");
    EXPECT_EQ(choose({"tarnwick", "--save", ""}).mode, Mode::usage);
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
    // The word an option takes is not a stray word, even when another mode is chosen.
    EXPECT_EQ(choose({"tarnwick", "--version", "--diff", "2"}).mode, Mode::version);
    EXPECT_EQ(choose({"tarnwick", "--diff", "2", "--save", "x"}).path, "2");
    EXPECT_FALSE(choose({"tarnwick", "--save", "--json"}).json) << "only a listing is JSON";
}

}  // namespace
}  // namespace tarnwick
