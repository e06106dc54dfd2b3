// AppDelegate: the menu-bar application's one long-lived object. It guards
// against overlapping operations with `busy`, runs saves and restores on the
// work queue, keeps the autosave timer, and fills the status menu.
#pragma once

#include "app/menu.h"
#include "app/shell.h"
#include "model/snapshot.h"
#include "session/restore.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

namespace tarnwick::MenuBar {

// The settings keys in the user defaults.
inline constexpr const char* autosaveMinutesKey = "autosaveMinutes";
inline constexpr const char* loginItemConfiguredKey = "loginItemConfigured";
// The longest autosave interval a setting may ask for, one day: a larger
// hand-edited value is ignored, and timed snapshots are off.
inline constexpr std::int64_t maxAutosaveMinutes = 24 * 60;

// Every member runs on the main thread; work queued on the work queue hands its
// results back to the main queue before any field is touched.
class AppDelegate : public std::enable_shared_from_this<AppDelegate> {
public:
    // Timers and delayed callbacks hold the delegate weakly, so it lives in a shared pointer.
    // `unavailable`: why the desktop cannot be served, where it cannot (no
    // backend is installed then); the menu says so first, and nothing is saved
    // or restored, by command, timer or power-off.
    static std::shared_ptr<AppDelegate> make(Shell& shell, std::optional<std::string> unavailable = std::nullopt);

    // The launch sequence: icon and menus, the last save's date, the trust
    // prompt, the first-launch login item, a prune, the timer, the snapshot a
    // minute after launch and the power-off observer.
    void applicationDidFinishLaunching();

    // Replaces the autosave timer with one for the current setting; none when off.
    void scheduleAutosave();
    // Captures and stores a snapshot on the work queue, unless something runs.
    void save(const std::string& reason, Task completion = {});
    // Holds the power-off back, for at most 10 seconds, until a snapshot is stored.
    void willPowerOff();
    // Restores the snapshot on the work queue and reports in an alert.
    void restore(const Snapshot& snapshot);

    // The status menu as it is to open now.
    Menu menuNeedsUpdate();

    // The menu's commands.
    void perform(Command command, std::int64_t tag);
    void saveNow();
    void setAutosave(std::int64_t minutes);
    void restoreLatest();
    void restorePreBoot();
    void restoreIndexed(std::int64_t position);
    void toggleLogin();
    void openAccessibility();
    void showFolder();
    void quit();

    // State, for the shell and the tests.
    const std::optional<std::string>& busy() const { return busy_; }
    const std::optional<Date>& lastSaved() const { return lastSaved_; }
    const std::shared_ptr<Timer>& timer() const { return timer_; }

    explicit AppDelegate(Shell& shell, std::optional<std::string> unavailable = std::nullopt);

private:
    // Marks the application busy and runs the restore on the work queue.
    void startRestore(const Snapshot& snapshot);
    // Starts the first restore confirmed while something ran, when nothing runs now.
    void runConfirmedRestore();
    void report(const Restore::Result& result);
    // The setting; a value beyond `maxAutosaveMinutes` reads as 0, with one log line.
    std::int64_t autosaveMinutes();
    void onMain() const;

    Shell& shell_;
    const std::optional<std::string> unavailable_;
    std::shared_ptr<Timer> timer_;
    std::optional<std::string> busy_;
    std::optional<Date> lastSaved_;
    std::optional<std::int64_t> ignoredMinutes_;  // the out-of-range value already logged
    // Restores the user confirmed at the trust warning while another operation
    // started under it; each runs when the operation before it is over.
    std::deque<Snapshot> confirmed_;
};

}  // namespace tarnwick::MenuBar
