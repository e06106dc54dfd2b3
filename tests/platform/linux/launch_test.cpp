// Launch::detached with real processes: the program runs on its own, not as
// our child, and a program that cannot start says why.
#include "platform/linux/launch.h"
#include "platform/linux/process.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace tarnwick::testing {
namespace {

// The fields of /proc/PID/stat after the command name: state, ppid, pgrp, session.
struct Stat {
    char state = '?';
    pid_t parent = 0;
    pid_t session = 0;
};

Stat statOf(pid_t pid) {
    std::string text = readText("/proc/" + std::to_string(pid) + "/stat");
    Stat stat;
    size_t close = text.rfind(')');
    if (close == std::string::npos) return stat;
    std::istringstream fields(text.substr(close + 2));
    pid_t group = 0;
    fields >> stat.state >> stat.parent >> group >> stat.session;
    return stat;
}

// Waits (real time) for a file the launched program writes.
std::string awaitFile(const std::filesystem::path& file) {
    for (int i = 0; i < 500; ++i) {
        std::string text = readText(file);
        if (!text.empty() && text.back() == '\n') return text;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return "";
}

class LaunchTest : public ::testing::Test {
protected:
    void TearDown() override {
        for (pid_t pid : launched) ::kill(pid, SIGKILL);
    }
    TempDir dir{"tarnwick-launch"};
    std::vector<pid_t> launched;
};

TEST_F(LaunchTest, TheProgramRunsInASessionOfItsOwnAdoptedByAnotherProcess) {
    // A descriptor of ours that is not close-on-exec must not reach the program.
    int leaked = ::open("/dev/null", O_RDONLY);
    ASSERT_GE(leaked, 0);
    auto report = dir.path() / "report";
    std::string why;
    auto pid = Launch::detached(
        {"sh", "-c",
         "ls /proc/$$/fd > fds; pwd > where; o=$(readlink /proc/$$/fd/1); echo $o > out; "
         "echo $$ > report; exec sleep 30"},
        dir.path().string(), why);
    ::close(leaked);
    ASSERT_TRUE(pid) << why;
    launched.push_back(*pid);
    EXPECT_EQ(awaitFile(report), std::to_string(*pid) + "\n");

    Stat stat = statOf(*pid);
    EXPECT_NE(stat.parent, ::getpid());
    // A session of its own, led by the child that started it and is gone, so
    // the program can never take a terminal of ours.
    EXPECT_NE(stat.session, ::getsid(0));
    EXPECT_NE(stat.session, *pid);
    EXPECT_EQ(readText(dir.path() / "where"), dir.path().string() + "\n");
    EXPECT_EQ(readText(dir.path() / "out"), "/dev/null\n");
    EXPECT_EQ(readText(dir.path() / "fds").find(std::to_string(leaked) + "\n"), std::string::npos)
        << readText(dir.path() / "fds");
    EXPECT_TRUE(Process::alive(*pid));
}

TEST_F(LaunchTest, AProgramNotFoundOrNotExecutableSaysWhy) {
    std::string why;
    EXPECT_FALSE(Launch::detached({"tarnwick-no-such-program"}, dir.path().string(), why));
    EXPECT_EQ(why, "No such file or directory");

    auto plain = dir.path() / "plain";
    writeText(plain, "#!/bin/sh\n");
    EXPECT_FALSE(Launch::detached({plain.string()}, dir.path().string(), why));
    EXPECT_EQ(why, "Permission denied");

    EXPECT_FALSE(Launch::detached({}, dir.path().string(), why));
    EXPECT_EQ(why, "nothing to run");
}

TEST_F(LaunchTest, AMissingWorkingFolderStillStartsTheProgram) {
    auto report = dir.path() / "report";
    std::string why;
    auto pid = Launch::detached({"sh", "-c", "echo started > " + report.string()},
                                (dir.path() / "gone").string(), why);
    ASSERT_TRUE(pid) << why;
    EXPECT_EQ(awaitFile(report), "started\n");
}

TEST(ProcessTest, FactsOfALiveProcessAndOfOneThatExited) {
    pid_t self = ::getpid();
    EXPECT_TRUE(Process::alive(self));
    EXPECT_EQ(Process::executable(self), std::filesystem::read_symlink("/proc/self/exe").string());
    std::string comm = readText("/proc/self/comm");
    comm.pop_back();  // the line feed
    EXPECT_EQ(Process::commandName(self), comm);

    // An exited child that nobody has reaped yet is not alive.
    pid_t child = ::fork();
    if (child == 0) ::_exit(0);
    ASSERT_GT(child, 0);
    for (int i = 0; i < 500 && statOf(child).state != 'Z'; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_FALSE(Process::alive(child));
    ::waitpid(child, nullptr, 0);
    EXPECT_FALSE(Process::alive(child));
    EXPECT_EQ(Process::executable(child), std::nullopt);
    EXPECT_FALSE(Process::alive(0));
}

}  // namespace
}  // namespace tarnwick::testing
