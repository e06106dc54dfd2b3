// runAppleScript and Scripts::shell against fake interpreters: real child processes.
#include "support/fake_tools.h"

#include "scripting/child_process.h"

#include "store/data_folder.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <csignal>
#include <dirent.h>
#include <fstream>
#include <regex>
#include <sys/wait.h>
#include <thread>

namespace tarnwick::testing {
namespace {

using Clock = std::chrono::steady_clock;

class RunnerTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::error_code ignored;
        std::filesystem::remove(logURL(), ignored);
    }
    static std::string logText() { return readText(logURL()); }
    // The lines of the log without their time stamps.
    static std::vector<std::string> logMessages() {
        std::vector<std::string> messages;
        std::string text = logText();
        for (size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
            messages.push_back(text.substr(start + 21, end - start - 21));
        return messages;
    }
};

size_t openDescriptors() {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        (void)entry;
        ++count;
    }
    return count;
}

// Our child processes, as (pid, state) with state 'Z' for a zombie.
std::vector<std::pair<int, char>> children() {
    std::vector<std::pair<int, char>> result;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        std::string stat = readText(entry.path() / "stat");
        size_t close = stat.rfind(')');
        if (close == std::string::npos) continue;
        char state = 0;
        int parent = 0;
        if (std::sscanf(stat.c_str() + close + 1, " %c %d", &state, &parent) == 2 && parent == getpid())
            result.emplace_back(std::stoi(name), state);
    }
    return result;
}

bool waitUntilNoChildren(std::chrono::seconds limit) {
    auto until = Clock::now() + limit;
    while (!children().empty()) {
        if (Clock::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

TEST_F(RunnerTest, EmptyScriptSendsOnlyThePrologue) {
    UsingTools tools("osascript_echo");
    EXPECT_EQ(runAppleScript(""), "set tb to character id 9\n");
    EXPECT_EQ(logText(), "");
}

TEST_F(RunnerTest, ScriptFollowsThePrologue) {
    UsingTools tools("osascript_echo");
    EXPECT_EQ(runAppleScript("return \"é\"\n"), "set tb to character id 9\nreturn \"é\"\n");
}

TEST_F(RunnerTest, ScriptThatPrintsNothingIsAPresentEmptyText) {
    UsingTools tools("osascript_replay");
    auto result = runAppleScript("");
    ASSERT_TRUE(result.has_value());
    EXPECT_EQ(*result, "");
}

TEST_F(RunnerTest, TimeOutWithTheDefaultTerminatesTheChildAndLogsOnce) {
    UsingTools tools("osascript_sleep");
    TempDir dir;
    setenv("TARNWICK_FAKE_PIDFILE", (dir.path() / "pid").c_str(), 1);
    auto start = Clock::now();
    EXPECT_EQ(runAppleScript("delay 100"), std::nullopt);
    auto elapsed = Clock::now() - start;
    unsetenv("TARNWICK_FAKE_PIDFILE");
    EXPECT_GE(elapsed, std::chrono::seconds(20));
    EXPECT_LT(elapsed, std::chrono::seconds(22));
    EXPECT_EQ(logMessages(), std::vector<std::string>{"osascript timed out after 20s"});
    int pid = std::stoi(readText(dir.path() / "pid"));
    EXPECT_TRUE(waitUntilNoChildren(std::chrono::seconds(3)));
    EXPECT_EQ(::kill(pid, 0), -1) << "the interpreter still runs";
}

TEST_F(RunnerTest, TimeOutIsLoggedInWholeSecondsTruncated) {
    UsingTools tools("osascript_sleep");
    auto start = Clock::now();
    EXPECT_EQ(runAppleScript("delay 100", 2.9), std::nullopt);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(2900));
    EXPECT_EQ(logMessages(), std::vector<std::string>{"osascript timed out after 2s"});
}

TEST_F(RunnerTest, CallerReturnsAtOnceAfterTheTimeOutAndTheChildIsReaped) {
    UsingTools tools("osascript_sleep");
    auto start = Clock::now();
    EXPECT_EQ(runAppleScript("", 0.3), std::nullopt);
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(800));
    EXPECT_TRUE(waitUntilNoChildren(std::chrono::seconds(3))) << "a zombie or a live child is left";
}

TEST_F(RunnerTest, FailureLogsStandardErrorWithItsLineFeed) {
    UsingTools tools("osascript_fail");
    EXPECT_EQ(runAppleScript("tell application \"Finder\" to quit"), std::nullopt);
    std::string text = logText();
    EXPECT_TRUE(std::regex_match(
        text, std::regex(".{20} osascript error: execution error: Not authorized to send Apple events to Finder\\. "
                         "\\(-1743\\)\n\n")))
        << text;
}

TEST_F(RunnerTest, OutputThatIsNotUtf8IsAnEmptySuccess) {
    UsingTools tools("osascript_bad_utf8");
    EXPECT_EQ(runAppleScript("x"), std::string());
    EXPECT_EQ(logText(), "");
}

TEST_F(RunnerTest, OneMebibyteOnEachStreamAtOnceDoesNotDeadlock) {
    UsingTools tools("osascript_flood");
    auto start = Clock::now();
    auto result = runAppleScript(std::string(200000, 'x'));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
    ASSERT_TRUE(result.has_value());
    EXPECT_EQ(result->size(), 1048576u);
    EXPECT_EQ(result->find_first_not_of('o'), std::string::npos);
}

TEST_F(RunnerTest, InterpreterThatCannotStart) {
    Scripts::setToolsForTesting({"/nonexistent/osascript", "/bin/ps", "/usr/sbin/lsof"});
    EXPECT_EQ(runAppleScript("x"), std::nullopt);
    Scripts::setToolsForTesting({});
    EXPECT_EQ(logMessages(), std::vector<std::string>{
                                 "osascript failed to start: No such file or directory (/nonexistent/osascript)"});
}

TEST_F(RunnerTest, TheProductUsesTheSystemPrograms) {
    Scripts::Tools tools = Scripts::tools();
    EXPECT_EQ(tools.osascript, "/usr/bin/osascript");
    EXPECT_EQ(tools.ps, "/bin/ps");
    EXPECT_EQ(tools.lsof, "/usr/sbin/lsof");
}

TEST_F(RunnerTest, ShellWithAMissingProgramIsEmptyAndSilent) {
    EXPECT_EQ(Scripts::shell("/nonexistent/tool", {"a"}), "");
    EXPECT_EQ(logText(), "");
}

TEST_F(RunnerTest, ShellPassesArgumentsAsTheyAreAndKeepsOnlyStandardOutput) {
    EXPECT_EQ(Scripts::shell("/bin/sh", {"-c", "printf '%s|' \"$@\"; echo oops >&2; exit 3", "sh", "a", "b c", "'d'"}),
              "a|b c|'d'|");
}

TEST_F(RunnerTest, ShellOutputThatIsNotUtf8IsEmpty) {
    EXPECT_EQ(Scripts::shell("/bin/sh", {"-c", "printf '\\377'"}), "");
}

TEST_F(RunnerTest, ThousandRunsLeakNoDescriptorsAndNoChildren) {
    UsingTools tools("osascript_echo");
    size_t before = openDescriptors();
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(runAppleScript(std::to_string(i)), "set tb to character id 9\n" + std::to_string(i));
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_TRUE(children().empty());
}

TEST_F(RunnerTest, ChildrenInheritNoDescriptorsOfOurs) {
    // Every descriptor we hold is close-on-exec, so the child sees only 0, 1, 2
    // (and the one its own listing opens).
    std::string listed = Scripts::shell("/bin/sh", {"-c", "ls /proc/$$/fd"});
    EXPECT_EQ(listed, "0\n1\n2\n");
}

TEST_F(RunnerTest, RunsFromSeveralThreadsAtOnce) {
    UsingTools tools("osascript_echo");
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t, &wrong] {
            for (int i = 0; i < 50; ++i) {
                std::string script = std::to_string(t) + ":" + std::to_string(i);
                if (runAppleScript(script) != "set tb to character id 9\n" + script) ++wrong;
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

// A host that answers every run as it is told and remembers what it was given.
class RecordingHost : public Scripts::Host {
public:
    Run answer;
    std::string toolOutput;
    std::vector<std::string> scripts;
    std::vector<double> timeouts;
    std::vector<std::vector<std::string>> toolCalls;

    Run appleScript(std::string_view script, double timeout) override {
        scripts.emplace_back(script);
        timeouts.push_back(timeout);
        return answer;
    }
    std::string tool(const std::string& path, const std::vector<std::string>& arguments) override {
        std::vector<std::string> call{path};
        call.insert(call.end(), arguments.begin(), arguments.end());
        toolCalls.push_back(call);
        return toolOutput;
    }
};

class UsingHost {
public:
    explicit UsingHost(Scripts::Host& host) { Scripts::setHostForTesting(&host); }
    ~UsingHost() { Scripts::setHostForTesting(nullptr); }
};

TEST_F(RunnerTest, HostAnswersInsteadOfAChildAndGetsTheScriptWithoutPrologue) {
    RecordingHost host;
    host.answer.out = "W\t\t1\n";
    UsingHost using_(host);
    // An interpreter that would fail if it were started.
    UsingTools tools("osascript_fail");
    EXPECT_EQ(runAppleScript("return 1", 7.5), "W\t\t1\n");
    EXPECT_EQ(host.scripts, std::vector<std::string>{"return 1"});
    EXPECT_EQ(host.timeouts, std::vector<double>{7.5});
    EXPECT_EQ(logText(), "");
}

TEST_F(RunnerTest, HostFailuresAndTimeOutsAreLoggedAsForAChild) {
    RecordingHost host;
    UsingHost using_(host);
    host.answer.exitStatus = 1;
    host.answer.err = "execution error: no such window (-1728)";
    EXPECT_EQ(runAppleScript("x", 20), std::nullopt);
    host.answer = {};
    host.answer.timedOut = true;
    EXPECT_EQ(runAppleScript("x", 2.9), std::nullopt);
    // A nonsensical time-out reaches the host as none at all.
    EXPECT_EQ(runAppleScript("x", -1), std::nullopt);
    EXPECT_EQ(host.timeouts.back(), 0);
    EXPECT_EQ(logMessages(), (std::vector<std::string>{"osascript error: execution error: no such window (-1728)",
                                                       "osascript timed out after 2s",
                                                       "osascript timed out after 0s"}));
}

TEST_F(RunnerTest, HostAnswersToolRunsAndOutputThatIsNotUtf8IsEmpty) {
    RecordingHost host;
    UsingHost using_(host);
    host.toolOutput = "  42 -zsh\n";
    EXPECT_EQ(Scripts::shell("/bin/ps", {"-t", "ttys003"}), "  42 -zsh\n");
    EXPECT_EQ(host.toolCalls, (std::vector<std::vector<std::string>>{{"/bin/ps", "-t", "ttys003"}}));
    host.toolOutput = "\xff";
    EXPECT_EQ(Scripts::shell("/bin/ps", {}), "");
}

TEST_F(RunnerTest, WithoutAHostChildProcessesRunAgain) {
    RecordingHost host;
    {
        UsingHost using_(host);
    }
    UsingTools tools("osascript_echo");
    EXPECT_TRUE(runAppleScript("hello").has_value());
    EXPECT_TRUE(host.scripts.empty());
}

TEST(ChildProcessDeath, WaitingTwiceStopsInsteadOfReapingAnotherChild) {
    EXPECT_DEATH(
        {
            int error = 0;
            auto child = ChildProcess::start("/bin/true", {}, ChildProcess::Input::inherit,
                                             ChildProcess::ErrorOutput::discard, error);
            if (!child) std::abort();
            child->wait();
            child->wait();
        },
        "waiting for a child that was already reaped");
}

TEST(ChildProcess, ExitStatusIsReported) {
    int error = 0;
    auto child = ChildProcess::start("/bin/sh", {"-c", "exit 7"}, ChildProcess::Input::inherit,
                                     ChildProcess::ErrorOutput::discard, error);
    ASSERT_TRUE(child) << error;
    int status = child->wait();
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST(ChildProcess, TheSignalsWeIgnoreAreAtTheirDefaultInTheChild) {
    if (!std::filesystem::exists("/proc/self/status")) GTEST_SKIP() << "no /proc to read a child's signals from";
    // The product ignores these two, so that a write fails instead of killing it.
    auto pipe = std::signal(SIGPIPE, SIG_IGN);
    auto fileSize = std::signal(SIGXFSZ, SIG_IGN);
    int error = 0;
    auto child = ChildProcess::start("/bin/sh", {"-c", "sed -n 's/^SigIgn:[[:space:]]*//p' /proc/$$/status"},
                                     ChildProcess::Input::inherit, ChildProcess::ErrorOutput::discard, error);
    std::signal(SIGPIPE, pipe);
    std::signal(SIGXFSZ, fileSize);
    ASSERT_TRUE(child) << error;
    std::string text;
    char buffer[256];
    for (ssize_t n; (n = ::read(child->output().get(), buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<size_t>(n));
    EXPECT_EQ(WEXITSTATUS(child->wait()), 0);
    ASSERT_FALSE(text.empty());
    unsigned long long ignored = std::stoull(text, nullptr, 16);
    EXPECT_EQ(ignored & (1ULL << (SIGPIPE - 1)), 0u) << text;
    EXPECT_EQ(ignored & (1ULL << (SIGXFSZ - 1)), 0u) << text;
}

}  // namespace
}  // namespace tarnwick::testing
