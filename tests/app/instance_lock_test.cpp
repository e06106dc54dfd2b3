// InstanceLock: the tray application's one-per-user lock, on real files and processes.
#include "app/instance_lock.h"
#include "scripting/child_process.h"
#include "support/scoped_variable.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

namespace tarnwick::testing {
namespace {

using MenuBar::InstanceLock;

class InstanceLockTest : public ::testing::Test {
protected:
    TempDir dir{"tarnwick-instance-lock"};
    std::filesystem::path file() const { return dir.path() / "runtime" / "Tarnwick" / "tray.lock"; }
};

TEST_F(InstanceLockTest, TheFirstHoldsItAndASecondFindsItHeldUntilTheFirstLetsGo) {
    {
        auto first = InstanceLock::take(file());
        EXPECT_EQ(first.outcome(), InstanceLock::Outcome::held) << first.reason();
        EXPECT_TRUE(std::filesystem::exists(file())) << "its folder is created";
        EXPECT_EQ(InstanceLock::take(file()).outcome(), InstanceLock::Outcome::heldElsewhere);
    }
    EXPECT_EQ(InstanceLock::take(file()).outcome(), InstanceLock::Outcome::held);
}

TEST_F(InstanceLockTest, AKilledHolderLetsGoOfIt) {
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    pid_t holder = ::fork();
    ASSERT_GE(holder, 0);
    if (holder == 0) {
        auto lock = InstanceLock::take(file());
        char held = lock.outcome() == InstanceLock::Outcome::held ? 'y' : 'n';
        if (::write(ready[1], &held, 1) != 1) ::_exit(1);
        ::pause();
        ::_exit(0);
    }
    ::close(ready[1]);
    char held = 0;
    ASSERT_EQ(::read(ready[0], &held, 1), 1);
    ::close(ready[0]);
    EXPECT_EQ(held, 'y');
    EXPECT_EQ(InstanceLock::take(file()).outcome(), InstanceLock::Outcome::heldElsewhere);
    ::kill(holder, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(holder, &status, 0), holder);
    EXPECT_EQ(InstanceLock::take(file()).outcome(), InstanceLock::Outcome::held);
}

TEST_F(InstanceLockTest, AProgramStartedWhileItIsHeldDoesNotInheritIt) {
    std::optional<ChildProcess> child;
    {
        auto lock = InstanceLock::take(file());
        ASSERT_EQ(lock.outcome(), InstanceLock::Outcome::held);
        int error = 0;
        auto started = ChildProcess::start("/bin/sleep", {"30"}, ChildProcess::Input::inherit,
                                           ChildProcess::ErrorOutput::discard, error);
        ASSERT_TRUE(started) << std::strerror(error);
        child.emplace(std::move(*started));
    }
    // The launched program still runs; the lock went with the application.
    EXPECT_EQ(InstanceLock::take(file()).outcome(), InstanceLock::Outcome::held);
    child->terminateInBackground();
}

TEST_F(InstanceLockTest, AFileThatCannotBeOpenedLeavesItUnavailableWithTheReason) {
    writeText(dir.path() / "plain", "a file where a folder should be");
    auto lock = InstanceLock::take(dir.path() / "plain" / "tray.lock");
    EXPECT_EQ(lock.outcome(), InstanceLock::Outcome::unavailable);
    EXPECT_EQ(lock.reason(), (dir.path() / "plain" / "tray.lock").string() + ": Not a directory");
}

TEST_F(InstanceLockTest, TheFileIsInTheRuntimeFolderElseBesideTheLog) {
    {
        ScopedVariable runtime("XDG_RUNTIME_DIR", "/run/user/4321");
        EXPECT_EQ(MenuBar::instanceLockFile(), std::filesystem::path("/run/user/4321/Tarnwick/tray.lock"));
    }
    ScopedVariable runtime("XDG_RUNTIME_DIR", "");
    ScopedVariable state("XDG_STATE_HOME", (dir.path() / "state").string());
    EXPECT_EQ(MenuBar::instanceLockFile(), dir.path() / "state" / "Tarnwick" / "tray.lock");
}

}  // namespace
}  // namespace tarnwick::testing
