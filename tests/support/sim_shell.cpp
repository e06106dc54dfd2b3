// The simulated shell: a real work thread, a main queue the test drives, and
// timers, delayed calls and blocking waits in the desktop's virtual time.
#include "support/sim_shell.h"

#include "app/texts.h"

#include <algorithm>
#include <chrono>
#include <ctime>

namespace tarnwick::testing {

// Remembers when, in virtual time, the work signalled, so that a wait can tell
// whether the signal came before its deadline whatever the real timing was.
struct SimShell::SimSignal final : MenuBar::Signal {
    explicit SimSignal(SimShell& owner) : shell(owner), madeAt(owner.desktop_.now()) {}
    void signal() override {
        double at = shell.desktop_.now();
        std::lock_guard guard(shell.lock_);
        if (!signalledAt) signalledAt = at;
        shell.changed_.notify_all();
    }
    SimShell& shell;
    // The work that signals is queued after this, and may move the clock before
    // the main thread starts waiting; the main thread's own time is this one.
    double madeAt;
    std::optional<double> signalledAt;  // under the shell's lock
};

SimShell::SimShell(SimDesktop& desktop)
    : desktop_(desktop), mainThread_(std::this_thread::get_id()), worker_([this] { workLoop(); }) {}

SimShell::~SimShell() {
    {
        std::unique_lock guard(lock_);
        changed_.wait(guard, [this] { return workIdle(); });
        stopping_ = true;
    }
    changed_.notify_all();
    worker_.join();
}

void SimShell::workLoop() {
    std::unique_lock guard(lock_);
    for (;;) {
        changed_.wait(guard, [this] { return stopping_ || !work_.empty(); });
        if (work_.empty()) return;
        MenuBar::Task task = std::move(work_.front());
        work_.pop_front();
        working_ = true;
        guard.unlock();
        task();
        guard.lock();
        working_ = false;
        ++workRun_;
        changed_.notify_all();
    }
}

// --- Driving ---------------------------------------------------------------------------

std::optional<SimShell::Due> SimShell::nextDue(double limit) const {
    std::optional<Due> next;
    // Timers before delayed calls on a tie, each in the order they were made.
    for (const auto& timer : timers)
        if (timer->valid && timer->nextTick <= limit && (!next || timer->nextTick < next->at))
            next = Due{timer->nextTick, timer, 0};
    for (size_t i = 0; i < delayed_.size(); ++i)
        if (delayed_[i].at <= limit && (!next || delayed_[i].at < next->at)) next = Due{delayed_[i].at, nullptr, i};
    return next;
}

void SimShell::fire(const Due& due) {
    if (due.timer) {
        // A run loop that was held up skips the ticks it missed.
        while (due.timer->nextTick <= desktop_.now()) due.timer->nextTick += due.timer->interval;
        ++due.timer->ticks;
        due.timer->tick();
        return;
    }
    MenuBar::Task task = std::move(delayed_[due.delayed].task);
    delayed_.erase(delayed_.begin() + static_cast<std::ptrdiff_t>(due.delayed));
    task();
}

bool SimShell::runNextMainTask() {
    std::unique_lock guard(lock_);
    for (;;) {
        // Whatever came first in virtual time: a task the work posted, or a
        // timer or delayed call that the clock, moved by the work, has reached.
        // Work posts later than now, so nothing earlier can still arrive.
        std::optional<Due> due = nextDue(desktop_.now());
        if (!main_.empty() && (!due || main_.front().at <= due->at)) {
            MenuBar::Task task = std::move(main_.front().task);
            main_.pop_front();
            guard.unlock();
            task();
            return true;
        }
        if (due) {
            guard.unlock();
            fire(*due);
            return true;
        }
        if (workIdle()) return false;
        changed_.wait_for(guard, std::chrono::milliseconds(1));
    }
}

void SimShell::settle() {
    while (runNextMainTask()) {
    }
}

void SimShell::runFor(double seconds) {
    double target = desktop_.now() + seconds;
    for (;;) {
        settle();
        std::optional<Due> due = nextDue(target);
        if (!due) break;
        if (due->at > desktop_.now()) desktop_.passTime(due->at - desktop_.now());
    }
    if (desktop_.now() < target) desktop_.passTime(target - desktop_.now());
}

void SimShell::runUntil(double deadline) {
    std::unique_lock guard(lock_);
    for (;;) {
        std::optional<Due> due = nextDue(std::min(desktop_.now(), deadline));
        if (!main_.empty() && main_.front().at <= deadline && (!due || main_.front().at <= due->at)) {
            MenuBar::Task task = std::move(main_.front().task);
            main_.pop_front();
            guard.unlock();
            task();
            guard.lock();
            continue;
        }
        if (due) {
            guard.unlock();
            fire(*due);
            guard.lock();
            continue;
        }
        if (desktop_.now() >= deadline) return;
        if (workIdle()) {
            // Nothing runs that could move the clock: move it to the next event or the deadline.
            std::optional<Due> next = nextDue(deadline);
            double to = next ? next->at : deadline;
            guard.unlock();
            if (to > desktop_.now()) desktop_.passTime(to - desktop_.now());
            guard.lock();
            continue;
        }
        changed_.wait_for(guard, std::chrono::milliseconds(1));
    }
}

MenuBar::Menu SimShell::openMenu() { return buildMenu_ ? buildMenu_() : MenuBar::Menu{}; }

void SimShell::choose(const MenuBar::MenuItem& item) {
    if (perform_) perform_(item.command, item.tag);
}

std::vector<std::shared_ptr<SimShell::SimTimer>> SimShell::liveTimers() const {
    std::vector<std::shared_ptr<SimTimer>> live;
    for (const auto& timer : timers)
        if (timer->valid) live.push_back(timer);
    return live;
}

std::vector<double> SimShell::pendingCalls() const {
    std::vector<double> times;
    for (const Delayed& call : delayed_) times.push_back(call.at);
    return times;
}

int SimShell::workRun() const {
    std::lock_guard guard(lock_);
    return workRun_;
}

void SimShell::announcePowerOff() {
    if (powerOffHandler_) powerOffHandler_();
}

// --- Shell ------------------------------------------------------------------------------

bool SimShell::onMainThread() { return std::this_thread::get_id() == mainThread_; }

void SimShell::async(MenuBar::Task task) {
    {
        std::lock_guard guard(lock_);
        work_.push_back(std::move(task));
    }
    changed_.notify_all();
}

void SimShell::toMain(MenuBar::Task task) {
    double at = desktop_.now();
    {
        std::lock_guard guard(lock_);
        main_.push_back(Posted{at, std::move(task)});
    }
    changed_.notify_all();
}

void SimShell::after(double seconds, MenuBar::Task task) { delayed_.push_back({desktop_.now() + seconds, std::move(task)}); }

std::shared_ptr<MenuBar::Timer> SimShell::repeating(double interval, MenuBar::Task tick) {
    auto timer = std::make_shared<SimTimer>();
    timer->interval = interval;
    timer->nextTick = desktop_.now() + interval;
    timer->tick = std::move(tick);
    timers.push_back(timer);
    return timer;
}

std::shared_ptr<MenuBar::Signal> SimShell::makeSignal() { return std::make_shared<SimSignal>(*this); }

bool SimShell::wait(MenuBar::Signal& signal, double seconds) {
    auto& simSignal = static_cast<SimSignal&>(signal);
    Wait record;
    record.started = simSignal.madeAt;
    double deadline = record.started + seconds;
    std::unique_lock guard(lock_);
    for (;;) {
        if (simSignal.signalledAt && *simSignal.signalledAt <= deadline) {
            record.signalled = true;
            record.returnedAt = *simSignal.signalledAt;
            break;
        }
        // The work's clock went past the deadline first, or nothing is left that could signal.
        if (simSignal.signalledAt || desktop_.now() > deadline || workIdle()) {
            record.returnedAt = deadline;
            break;
        }
        changed_.wait_for(guard, std::chrono::milliseconds(1));
    }
    guard.unlock();
    if (!record.signalled && desktop_.now() < deadline) desktop_.passTime(deadline - desktop_.now());
    waits.push_back(record);
    return record.signalled;
}

void SimShell::showStatusItem(const std::string& symbol, const std::string& accessibilityDescription,
                              std::function<MenuBar::Menu()> build,
                              std::function<void(MenuBar::Command, std::int64_t)> perform) {
    statusItem = StatusItem{true, symbol, accessibilityDescription};
    buildMenu_ = std::move(build);
    perform_ = std::move(perform);
}

void SimShell::setMainMenu(const MenuBar::Menu& menu) { mainMenu = menu; }

void SimShell::activate() { ++activations; }

int SimShell::runAlert(const MenuBar::Alert& alert) {
    alerts.push_back(alert);
    if (alertOpenFor > 0) runUntil(desktop_.now() + alertOpenFor);
    if (alertAnswers.empty()) return 0;
    int answer = alertAnswers.front();
    alertAnswers.pop_front();
    return answer;
}

// Formatted in UTC with English names, so that tests do not depend on the machine's zone.
MenuBar::SystemTexts SimShell::systemTexts() { return linuxWording ? MenuBar::linuxTexts() : MenuBar::macTexts(); }

std::string SimShell::shortDate(Date date) {
    std::time_t seconds = std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(date));
    std::tm fields{};
    gmtime_r(&seconds, &fields);
    char day[8], rest[32];
    std::strftime(day, sizeof day, "%a", &fields);
    std::strftime(rest, sizeof rest, "%b, %H:%M", &fields);
    return std::string(day) + " " + std::to_string(fields.tm_mday) + " " + rest;
}

std::int64_t SimShell::integerSetting(const std::string& key) {
    auto found = integers.find(key);
    return found == integers.end() ? 0 : found->second;
}

void SimShell::setIntegerSetting(const std::string& key, std::int64_t value) { integers[key] = value; }

bool SimShell::booleanSetting(const std::string& key) {
    auto found = booleans.find(key);
    return found != booleans.end() && found->second;
}

void SimShell::setBooleanSetting(const std::string& key, bool value) { booleans[key] = value; }

MenuBar::LoginItemStatus SimShell::loginItemStatus() { return loginStatus; }

std::optional<std::string> SimShell::registerLoginItem() {
    ++loginRegistrations;
    if (loginError) return loginError;
    loginStatus = MenuBar::LoginItemStatus::enabled;
    return std::nullopt;
}

std::optional<std::string> SimShell::unregisterLoginItem() {
    ++loginUnregistrations;
    if (loginError) return loginError;
    loginStatus = MenuBar::LoginItemStatus::notRegistered;
    return std::nullopt;
}

void SimShell::openURL(const std::string& url) { openedURLs.push_back(url); }

void SimShell::reveal(const std::string& path) { revealed.push_back(path); }

void SimShell::observePowerOff(MenuBar::Task handler) {
    powerOffObserved = true;
    powerOffHandler_ = std::move(handler);
}

void SimShell::terminate() { ++terminations; }

}  // namespace tarnwick::testing
