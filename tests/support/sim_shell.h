// SimShell: the menu-bar application's surroundings, simulated. A real work
// thread runs the queued work in order; the thread that made the shell is the
// main thread and runs the main queue, the timers and the delayed calls when
// the test drives it. Time is the desktop's virtual clock, so a 15-minute timer
// or a 10-second power-off wait takes no real time.
#pragma once

#include "app/shell.h"
#include "support/sim_desktop.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace tarnwick::testing {

class SimShell final : public MenuBar::Shell {
public:
    explicit SimShell(SimDesktop& desktop);
    // Lets queued work finish, then stops the work thread.
    ~SimShell() override;
    SimShell(const SimShell&) = delete;
    SimShell& operator=(const SimShell&) = delete;

    // --- Driving, from the main thread ------------------------------------------
    // Runs main-thread events until the work queue is idle and nothing is due.
    void settle();
    // Runs the next main-thread event in virtual-time order (a task the work
    // queue posted, or a timer tick or delayed call the clock has reached),
    // waiting for the work queue when it is busy; false when it went idle with
    // nothing to run.
    bool runNextMainTask();
    // Lets `seconds` of virtual time pass on the main thread: queued work runs,
    // then timers tick and delayed calls run at their times, in time order.
    void runFor(double seconds);
    // Runs main-thread events up to the virtual time `deadline` and returns then,
    // also while work is still running.
    void runUntil(double deadline);
    // The status menu as it would open now, and a click on one of its items.
    MenuBar::Menu openMenu();
    void choose(const MenuBar::MenuItem& item);

    // --- What the application did ---------------------------------------------------
    struct StatusItem {
        bool shown = false;
        std::string symbol;
        std::string description;
    };
    StatusItem statusItem;
    std::optional<MenuBar::Menu> mainMenu;
    std::vector<MenuBar::Alert> alerts;
    std::deque<int> alertAnswers;  // the buttons the user will press, first alert first; 0 when empty
    // How long each alert stays open, in virtual time. Meanwhile the main thread
    // runs posted tasks, timer ticks and delayed calls, as a modal run loop does;
    // work still running when the user answers goes on after the alert.
    double alertOpenFor = 0;
    int activations = 0;
    std::vector<std::string> openedURLs;
    std::vector<std::string> revealed;
    int terminations = 0;
    bool powerOffObserved = false;
    // The texts of a Linux desktop instead of a Mac's.
    bool linuxWording = false;

    std::map<std::string, std::int64_t> integers;
    std::map<std::string, bool> booleans;

    MenuBar::LoginItemStatus loginStatus = MenuBar::LoginItemStatus::notRegistered;
    std::optional<std::string> loginError;  // set: the system refuses every (un)registration
    int loginRegistrations = 0;
    int loginUnregistrations = 0;

    // A repeating timer: its interval, next tick in virtual time, and how it was left.
    struct SimTimer final : MenuBar::Timer {
        double interval = 0;
        double nextTick = 0;
        bool valid = true;
        int ticks = 0;
        MenuBar::Task tick;
        void invalidate() override { valid = false; }
    };
    // Every timer made, in order.
    std::vector<std::shared_ptr<SimTimer>> timers;
    // The timers still valid.
    std::vector<std::shared_ptr<SimTimer>> liveTimers() const;
    // Delayed calls not run yet, by their virtual time.
    std::vector<double> pendingCalls() const;

    // A blocking wait of the main thread.
    struct Wait {
        double started = 0;
        double returnedAt = 0;
        bool signalled = false;
    };
    std::vector<Wait> waits;
    // Work tasks run so far.
    int workRun() const;

    // Simulates the system's power-off announcement.
    void announcePowerOff();

    // --- Shell -------------------------------------------------------------------------
    bool onMainThread() override;
    void async(MenuBar::Task task) override;
    void toMain(MenuBar::Task task) override;
    void after(double seconds, MenuBar::Task task) override;
    std::shared_ptr<MenuBar::Timer> repeating(double interval, MenuBar::Task tick) override;
    std::shared_ptr<MenuBar::Signal> makeSignal() override;
    bool wait(MenuBar::Signal& signal, double seconds) override;
    void showStatusItem(const std::string& symbol, const std::string& accessibilityDescription,
                        std::function<MenuBar::Menu()> build,
                        std::function<void(MenuBar::Command, std::int64_t)> perform) override;
    void setMainMenu(const MenuBar::Menu& menu) override;
    void activate() override;
    int runAlert(const MenuBar::Alert& alert) override;
    std::string shortDate(Date date) override;
    MenuBar::SystemTexts systemTexts() override;
    std::int64_t integerSetting(const std::string& key) override;
    void setIntegerSetting(const std::string& key, std::int64_t value) override;
    bool booleanSetting(const std::string& key) override;
    void setBooleanSetting(const std::string& key, bool value) override;
    MenuBar::LoginItemStatus loginItemStatus() override;
    std::optional<std::string> registerLoginItem() override;
    std::optional<std::string> unregisterLoginItem() override;
    void openURL(const std::string& url) override;
    void reveal(const std::string& path) override;
    void observePowerOff(MenuBar::Task handler) override;
    void terminate() override;

private:
    struct SimSignal;
    struct Delayed {
        double at = 0;
        MenuBar::Task task;
    };
    struct Posted {
        double at = 0;  // when the work posted it, in virtual time
        MenuBar::Task task;
    };
    // A timer tick or a delayed call that is due.
    struct Due {
        double at = 0;
        std::shared_ptr<SimTimer> timer;  // or else the delayed call at this position
        size_t delayed = 0;
    };
    std::optional<Due> nextDue(double limit) const;
    void fire(const Due& due);

    void workLoop();
    // Under lock_: nothing queued or running on the work queue.
    bool workIdle() const { return work_.empty() && !working_; }

    SimDesktop& desktop_;
    std::thread::id mainThread_;
    std::function<MenuBar::Menu()> buildMenu_;
    std::function<void(MenuBar::Command, std::int64_t)> perform_;
    MenuBar::Task powerOffHandler_;
    std::vector<Delayed> delayed_;

    mutable std::mutex lock_;
    std::condition_variable changed_;
    std::deque<MenuBar::Task> work_;
    std::deque<Posted> main_;
    bool working_ = false;
    bool stopping_ = false;
    int workRun_ = 0;
    std::thread worker_;
};

}  // namespace tarnwick::testing
