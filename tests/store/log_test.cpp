// log(): time-stamped lines appended to the log file.
#include "store_fixture.h"

#include "store/log.h"

#include <regex>
#include <thread>

namespace tarnwick::testing {
namespace {

using LogTest = StoreTest;

const std::regex kStamp("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z");

TEST_F(LogTest, LivesUnderTheStateFolder) {
    EXPECT_EQ(logURL(), std::filesystem::path(std::getenv("XDG_STATE_HOME")) / "Tarnwick" / "Tarnwick.log");
}

TEST_F(LogTest, FirstCallCreatesTheFileWithOneLine) {
    ASSERT_FALSE(std::filesystem::exists(logURL()));
    log("launched; boot time 2026-03-14T09:26:53Z");
    std::string text = logText();
    std::smatch match;
    ASSERT_TRUE(std::regex_match(text, match, std::regex("(.{20}) launched; boot time 2026-03-14T09:26:53Z\n")))
        << text;
    EXPECT_TRUE(std::regex_match(match[1].str(), kStamp)) << text;
}

TEST_F(LogTest, SecondCallAppendsAndNeverRewrites) {
    writeText(logURL(), "earlier content without a line feed");
    log("one");
    log("two");
    std::string text = logText();
    EXPECT_TRUE(std::regex_match(text, std::regex("earlier content without a line feed.{20} one\n.{20} two\n")))
        << text;
}

TEST_F(LogTest, EmptyMessageIsTimeStampAndBlank) {
    log("");
    std::string text = logText();
    ASSERT_EQ(text.size(), 22u) << text;
    EXPECT_TRUE(std::regex_match(text.substr(0, 20), kStamp));
    EXPECT_EQ(text.substr(20), " \n");
}

TEST_F(LogTest, MessageIsWrittenUnchanged) {
    log("osascript error: line one\n  line two\n");
    EXPECT_TRUE(std::regex_match(logText(), std::regex(".{20} osascript error: line one\n  line two\n\n")));
}

TEST_F(LogTest, LineFormat) {
    using namespace std::chrono;
    EXPECT_EQ(logLine(sys_days{2026y / March / 14} + 9h + 26min + 53s + 400ms, "save (manual): 1 apps · 1 windows"),
              "2026-03-14T09:26:53Z save (manual): 1 apps · 1 windows\n");
}

TEST_F(LogTest, MissingFolderDropsTheLineSilently) {
    TempDir dir;
    appendLogLine(dir.path() / "missing" / "Tarnwick.log", "x\n");
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "missing"));
}

TEST_F(LogTest, ConcurrentLinesDoNotTear) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 200; ++i) log("thread " + std::to_string(t) + " line " + std::to_string(i));
        });
    for (auto& thread : threads) thread.join();
    std::istringstream lines(logText());
    std::string line;
    int count = 0;
    while (std::getline(lines, line)) {
        EXPECT_TRUE(std::regex_match(line, std::regex(".{20} thread [0-7] line [0-9]+"))) << line;
        ++count;
    }
    EXPECT_EQ(count, 1600);
}

}  // namespace
}  // namespace tarnwick::testing
