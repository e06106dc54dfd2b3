// The listing script a running Tarnwick keeps loaded in a real headless KWin:
// it keeps up with windows maximized after it was loaded, keeps waiting for
// as long as Tarnwick runs, goes with Tarnwick's connection, is loaded again
// when it is gone, and takes its tokens from KWin alone. On the machine's own
// KWin (5.27 on Debian 12) and on KWin 6 from the Debian 13 root.
#include "platform/kwin/kwin_bus.h"
#include "platform/kwin/kwin_platform.h"
#include "platform/kwin/kwin_scripts.h"
#include "session/capture.h"
#include "support/kwin_session.h"
#include "support/sim_desktop.h"
#include "support/virtual_display.h"

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <chrono>
#include <map>
#include <mutex>
#include <thread>

namespace tarnwick {
namespace {

using testing::KWinBuild;
using testing::KWinSession;
using testing::forWindow;
using testing::KWinWindow;
using testing::eventually;

const char* const westonTitle = "Wayland Terminal";
const char* const xtermTitle = "xterm";
constexpr auto answerWithin = std::chrono::milliseconds(3000);

class KWinListingTest : public ::testing::TestWithParam<KWinBuild> {
protected:
    void SetUp() override {
        session_ = std::make_unique<KWinSession>(GetParam());
        if (!session_->running()) GTEST_SKIP() << "no headless KWin here: " << session_->whyNot();
        session_->start("weston-terminal", {});
        session_->start("xterm", {});
        ASSERT_TRUE(eventually([&] { return byTitle().size() == 2; }, 30.0)) << "the terminals showed no windows";
        std::string why;
        bus_ = KWin::Bus::open(why);
        ASSERT_TRUE(bus_) << why;
    }

    void TearDown() override {
        bus_.reset();
        session_.reset();
    }

    std::map<std::string, KWinWindow> byTitle() { return session_->windowsByTitle(); }

    // The windows as the script kept loaded lists them, by title; nothing
    // when it did not answer.
    std::optional<std::map<std::string, KWin::WindowFacts>> listed() {
        std::string why;
        std::string token = bus_->nextToken();
        auto payload = bus_->askResident(KWin::residentListingScript, token, answerWithin, why);
        if (!payload) {
            lastWhy_ = why;
            return std::nullopt;
        }
        auto listing = KWin::parseListing(*payload);
        if (!listing) return std::nullopt;
        std::map<std::string, KWin::WindowFacts> windows;
        for (KWin::WindowFacts& facts : listing->windows) windows[facts.caption] = std::move(facts);
        return windows;
    }

    std::unique_ptr<KWinSession> session_;
    std::unique_ptr<KWin::Bus> bus_;
    std::string lastWhy_;
};

TEST_P(KWinListingTest, WindowsMaximizedAfterItWasLoadedAreListedAsKWinReportsThem) {
    auto first = listed();
    ASSERT_TRUE(first) << lastWhy_;
    const std::string name = bus_->residentName();
    ASSERT_FALSE(name.empty());
    EXPECT_TRUE(session_->scriptLoaded(name));
    EXPECT_FALSE((*first)[westonTitle].maximizedHorizontally || (*first)[westonTitle].maximizedVertically);

    // Each axis alone, so that the two cannot be read the wrong way round,
    // then both, then neither; on a Wayland and an XWayland window.
    struct Step {
        bool horizontally, vertically;
    };
    for (Step step : {Step{true, false}, Step{false, true}, Step{true, true}, Step{false, false}}) {
        std::string call = std::string("c.setMaximize(") + (step.vertically ? "true" : "false") + ", " +
                           (step.horizontally ? "true" : "false") + ");";
        session_->script(forWindow(westonTitle, call) + forWindow(xtermTitle, call));
        std::map<std::string, KWinWindow> reported;
        ASSERT_TRUE(eventually([&] {
            reported = byTitle();
            for (const char* title : {westonTitle, xtermTitle})
                if (reported[title].maximizedHorizontally != step.horizontally ||
                    reported[title].maximizedVertically != step.vertically)
                    return false;
            return true;
        })) << "KWin did not maximize the windows so";
        auto now = listed();
        ASSERT_TRUE(now) << lastWhy_;
        for (const char* title : {westonTitle, xtermTitle}) {
            EXPECT_EQ((*now)[title].maximizedHorizontally, step.horizontally) << title;
            EXPECT_EQ((*now)[title].maximizedVertically, step.vertically) << title;
            EXPECT_EQ((*now)[title].width, reported[title].width) << title;
        }
        EXPECT_EQ(bus_->residentName(), name) << "the same script answered every time";
    }
}

// KWin gives up on a call that has had no answer for 25 s, and a script
// whose call failed never asks again.
TEST_P(KWinListingTest, ItKeepsWaitingLongerThanKWinWaitsForAnAnswer) {
    ASSERT_TRUE(listed()) << lastWhy_;
    const std::string name = bus_->residentName();
    // As the backend does, while nothing is asked of it.
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(32);
    while (std::chrono::steady_clock::now() < until) {
        bus_->keepResidentWaiting();
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    auto started = std::chrono::steady_clock::now();
    auto later = listed();
    ASSERT_TRUE(later) << lastWhy_;
    EXPECT_EQ(later->size(), 2u);
    EXPECT_EQ(bus_->residentName(), name) << "the script loaded first still waited, and answered";
    // Not after a timeout: a loaded script that stopped waiting costs seconds.
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(2000));
}

TEST_P(KWinListingTest, ItGoesWithTheConnectionThatLoadedIt) {
    ASSERT_TRUE(listed()) << lastWhy_;
    const std::string name = bus_->residentName();
    ASSERT_TRUE(session_->scriptLoaded(name));
    bus_.reset();
    EXPECT_FALSE(session_->scriptLoaded(name));
}

TEST_P(KWinListingTest, ItIsLoadedAgainWhenItWasUnloadedBehindOurBack) {
    ASSERT_TRUE(listed()) << lastWhy_;
    const std::string name = bus_->residentName();
    session_->unloadScript(name);
    ASSERT_FALSE(session_->scriptLoaded(name));
    // The ask that finds it gone fails in its time, and says why; the next loads it anew.
    EXPECT_FALSE(listed());
    EXPECT_FALSE(lastWhy_.empty());
    auto again = listed();
    ASSERT_TRUE(again) << lastWhy_;
    EXPECT_EQ(again->size(), 2u);
    EXPECT_NE(bus_->residentName(), name);
    EXPECT_TRUE(session_->scriptLoaded(bus_->residentName()));
}

// KWin numbers a script by how many are loaded: one unloaded below ours
// gives the next script our script's number. That script still runs.
TEST_P(KWinListingTest, AScriptUnloadedBelowItLeavesTheNextScriptsRunning) {
    ASSERT_TRUE(session_->loadScript("tarnwick-test-below"));
    ASSERT_TRUE(listed()) << lastWhy_;
    const std::string name = bus_->residentName();
    session_->unloadScript("tarnwick-test-below");
    for (int round = 0; round < 2; ++round) {
        std::string why;
        std::string token = bus_->nextToken();
        auto done = bus_->runScript(KWin::answerOnlyScript(bus_->replyAddress(), token), token, answerWithin, why);
        EXPECT_EQ(done.value_or(why), "done") << "round " << round;
    }
    auto after = listed();
    ASSERT_TRUE(after) << lastWhy_;
    EXPECT_EQ(bus_->residentName(), name);
}

// A capture made while the script is gone still lists every window, by a
// script of its own, and the capture after it finds the script loaded again.
TEST_P(KWinListingTest, ACaptureWhileItIsGoneStillListsEveryWindow) {
    // The log's lines, kept until the test ends however it ends.
    struct LogLines {
        std::vector<std::string> lines;
        std::mutex lock;
        LogLines() {
            setPlatformLog([this](const std::string& line) {
                std::lock_guard<std::mutex> hold(lock);
                lines.push_back(line);
            });
        }
        ~LogLines() { setPlatformLog(nullptr); }
    } logged;
    std::string why;
    auto backend = openKWinPlatform(why);
    ASSERT_TRUE(backend) << why;
    testing::ScopedPlatform installed(*backend);
    for (int round = 0; round < 2; ++round) {
        // A script of the test's own, loaded the same way, shows the
        // stopping works; once stopped, its first ask fails and the next
        // loads it again.
        ASSERT_TRUE(listed() || listed()) << lastWhy_;
        EXPECT_EQ(Capture::snapshot("test").windowCount(), 2u) << "round " << round << ", loaded";
        const std::string ours = bus_->residentName();
        session_->stopEveryScript();
        EXPECT_FALSE(session_->scriptLoaded(ours)) << "round " << round;
        backend->sleep(0.06);
        EXPECT_EQ(Capture::snapshot("test").windowCount(), 2u) << "round " << round << ", stopped";
        backend->sleep(0.06);
    }
    // Each failure was followed by a listing that worked: none gives it up.
    std::lock_guard<std::mutex> hold(logged.lock);
    for (const std::string& line : logged.lines)
        EXPECT_EQ(line.find("KWin: the listing script kept in KWin failed"), std::string::npos) << line;
}

// Only KWin's own connection may take a token or answer one: another
// program on the bus could otherwise feed Tarnwick windows of its making.
TEST_P(KWinListingTest, OnlyKWinMayWaitForATokenOrAnswerOne) {
    ASSERT_TRUE(listed()) << lastWhy_;
    sd_bus* raw = nullptr;
    ASSERT_GE(sd_bus_open_user(&raw), 0);
    std::unique_ptr<sd_bus, decltype(&sd_bus_flush_close_unref)> other(raw, &sd_bus_flush_close_unref);
    const KWin::ReplyAddress& address = bus_->replyAddress();
    struct Outcome {
        bool done = false;
        std::string error;
    };
    auto handler = [](sd_bus_message* reply, void* data, sd_bus_error*) -> int {
        auto* outcome = static_cast<Outcome*>(data);
        outcome->done = true;
        if (const sd_bus_error* error = sd_bus_message_get_error(reply)) outcome->error = error->name;
        return 0;
    };
    Outcome waited, answered;
    sd_bus_slot* first = nullptr;
    sd_bus_slot* second = nullptr;
    ASSERT_GE(sd_bus_call_method_async(other.get(), &first, address.service.c_str(), address.path.c_str(),
                                       address.interface.c_str(), address.next.c_str(), handler, &waited, "s",
                                       "forged"),
              0);
    ASSERT_GE(sd_bus_call_method_async(other.get(), &second, address.service.c_str(), address.path.c_str(),
                                       address.interface.c_str(), address.method.c_str(), handler, &answered, "ss",
                                       "forged", "{\"windows\": []}"),
              0);
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while ((!waited.done || !answered.done) && std::chrono::steady_clock::now() < until) {
        bus_->keepResidentWaiting();
        while (sd_bus_process(other.get(), nullptr) > 0) {
        }
        sd_bus_wait(other.get(), 10'000);
    }
    sd_bus_slot_unref(first);
    sd_bus_slot_unref(second);
    EXPECT_EQ(waited.error, "org.freedesktop.DBus.Error.AccessDenied");
    EXPECT_EQ(answered.error, "org.freedesktop.DBus.Error.AccessDenied");
    // KWin's own script still answers.
    auto after = listed();
    ASSERT_TRUE(after) << lastWhy_;
    EXPECT_EQ(after->size(), 2u);
}

INSTANTIATE_TEST_SUITE_P(kwin, KWinListingTest, ::testing::Values(KWinBuild::installed, KWinBuild::debian13),
                         [](const ::testing::TestParamInfo<KWinBuild>& build) { return testing::nameOf(build.param); });

}  // namespace
}  // namespace tarnwick
