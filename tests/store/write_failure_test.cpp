// A save that cannot be written returns false, logs why and leaves the folder as it was.
#include "store_fixture.h"

#include "support/snapshot_gen.h"

#include <csignal>
#include <limits>
#include <regex>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarnwick::testing {
namespace {

// Runs `body` in a forked child and returns its exit status (or 128 + signal).
template <typename Body>
int inChild(Body body) {
    pid_t pid = fork();
    if (pid == 0) _exit(body());
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

class WriteFailureTest : public StoreTest {
protected:
    void SetUp() override {
        StoreTest::SetUp();
        ASSERT_TRUE(Store::save(session(afterBoot(0))));
        before_ = names();
        beforeContent_ = readText(supportDir() / before_[0]);
    }
    void expectFolderAsItWas() {
        EXPECT_EQ(names(), before_);
        EXPECT_EQ(readText(supportDir() / before_[0]), beforeContent_);
    }
    // The log holds exactly one line, "save failed: " with the given reason.
    void expectLogged(const std::string& reasonPattern) {
        std::string text = logText();
        EXPECT_TRUE(std::regex_match(text, std::regex(".{20} save failed: " + reasonPattern + "\n"))) << text;
    }
    std::vector<std::string> before_;
    std::string beforeContent_;
};

TEST_F(WriteFailureTest, UnwritableFolder) {
    // Root writes anywhere, so the child gives up its privileges first. The log
    // and the folders above the snapshots must stay reachable for that user.
    bool root = geteuid() == 0;
    auto home = std::filesystem::path(std::getenv("HOME"));
    if (root) {
        for (auto p = logURL().parent_path(); p != home.parent_path(); p = p.parent_path())
            chmod(p.c_str(), 0777);
        for (auto p = supportDir().parent_path(); p != home; p = p.parent_path()) chmod(p.c_str(), 0755);
        writeText(logURL(), "");
        chmod(logURL().c_str(), 0666);
    }
    chmod(supportDir().c_str(), 0555);
    int status = inChild([&] {
        if (root && (setgid(65534) != 0 || setuid(65534) != 0)) return 3;
        return Store::save(session(afterBoot(5), 7)) ? 1 : 0;
    });
    chmod(supportDir().c_str(), 0755);
    EXPECT_EQ(status, 0);
    expectLogged("could not create a temporary file in " + supportDir().string() + ": Permission denied");
    expectFolderAsItWas();
}

TEST_F(WriteFailureTest, FileSizeLimit) {
    Snapshot heavy = heavySession(60, 400, 2000, afterBoot(5));
    int status = inChild([&] {
        // Far below the heavy snapshot, well above one log line.
        rlimit limit{4096, 4096};
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 3;
        std::signal(SIGXFSZ, SIG_IGN);
        return Store::save(heavy) ? 1 : 0;
    });
    EXPECT_EQ(status, 0);
    expectLogged("could not write " + supportDir().string() + "/\\." + Store::fileName(afterBoot(5)) +
                 "\\.\\w{6}: File too large");
    expectFolderAsItWas();
}

TEST_F(WriteFailureTest, FolderRemovedWhileRunning) {
    std::filesystem::remove_all(supportDir());
    EXPECT_FALSE(Store::save(session(afterBoot(5), 7)));
    expectLogged("could not create a temporary file in " + supportDir().string() + ": No such file or directory");
    EXPECT_FALSE(std::filesystem::exists(supportDir()));
}

TEST_F(WriteFailureTest, WriteTellsAFailureApartFromAnUnchangedSessionWithItsReason) {
    std::filesystem::remove_all(supportDir());
    std::string why;
    EXPECT_EQ(Store::write(session(afterBoot(5), 7), &why), Store::Saved::failed);
    EXPECT_EQ(why, "could not create a temporary file in " + supportDir().string() + ": No such file or directory");
    expectLogged(why);
}

TEST_F(WriteFailureTest, NonFiniteFrameFailsToEncode) {
    Snapshot s = session(afterBoot(5));
    s.apps[0].windows[0].frame->h = std::numeric_limits<double>::infinity();
    EXPECT_FALSE(Store::save(s));
    expectLogged("a frame value is not a finite number");
    expectFolderAsItWas();
}

}  // namespace
}  // namespace tarnwick::testing
