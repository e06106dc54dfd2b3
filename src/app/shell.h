// MenuBar::Shell: what the menu-bar application needs from the system around it
// (status item, settings, login item, queues, timers, alerts, workspace). The
// portable delegate decides everything; a shell only carries it out. The macOS
// shell is AppKit and GCD; the tests use a simulated one in virtual time.
#pragma once

#include "app/menu.h"
#include "model/snapshot.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick::MenuBar {

using Task = std::function<void()>;

// A repeating timer on the main thread.
class Timer {
public:
    virtual ~Timer() = default;
    // Stops it for good; a second call does nothing.
    virtual void invalidate() = 0;
};

// Signalled once by work on the work queue; waited for, with a deadline, on the main thread.
class Signal {
public:
    virtual ~Signal() = default;
    virtual void signal() = 0;
};

// A modal alert. With no buttons the system shows its single default one.
struct Alert {
    std::string message;
    std::string informative;
    std::vector<std::string> buttons;
};

// The texts that name the system around the application: its file manager,
// and what window placement needs there.
struct SystemTexts {
    std::string showFolder;   // the menu item that shows the snapshot folder
    std::string grantAccess;  // the menu item or note shown while windows cannot be placed
    // Where placement is granted; none where nothing can be granted, and the
    // grant item is then a note.
    std::optional<std::string> settingsURL;
    // Before a restore that cannot place windows: "Restore anyway" first.
    Alert placementWarning;
};

// The login item's status, as the system reports it.
enum class LoginItemStatus { notRegistered, enabled, requiresApproval, notFound };

class Shell {
public:
    virtual ~Shell() = default;

    // --- Threads and time -------------------------------------------------------
    // True on the main thread, the only one that may touch the delegate's state.
    virtual bool onMainThread() = 0;
    // Queues on the serial work queue.
    virtual void async(Task task) = 0;
    // Queues on the main queue; tasks run in the order they were queued.
    virtual void toMain(Task task) = 0;
    // Runs the task on the main queue `seconds` from now.
    virtual void after(double seconds, Task task) = 0;
    // A repeating timer on the main run loop; the first tick is one interval away.
    virtual std::shared_ptr<Timer> repeating(double interval, Task tick) = 0;
    virtual std::shared_ptr<Signal> makeSignal() = 0;
    // Blocks the calling thread until the signal or for `seconds`; true when signalled.
    virtual bool wait(Signal& signal, double seconds) = 0;

    // --- The visible parts --------------------------------------------------------
    // Puts the icon in the status bar with a menu that is refilled by `build` at
    // every opening; a chosen item calls `perform` with its command and tag.
    virtual void showStatusItem(const std::string& symbol, const std::string& accessibilityDescription,
                                std::function<Menu()> build,
                                std::function<void(Command, std::int64_t)> perform) = 0;
    virtual void setMainMenu(const Menu& menu) = 0;
    // Brings the application to the front, ignoring other applications.
    virtual void activate() = 0;
    // Runs the alert modally; the position of the button pressed, 0 for the first.
    virtual int runAlert(const Alert& alert) = 0;
    // The date as the menu shows it: "EEE d MMM, HH:mm" in the user's locale and time zone.
    virtual std::string shortDate(Date date) = 0;
    // The texts that name this system's file manager and window placement.
    virtual SystemTexts systemTexts() = 0;

    // --- Settings ------------------------------------------------------------------
    // Missing keys read 0 and false.
    virtual std::int64_t integerSetting(const std::string& key) = 0;
    virtual void setIntegerSetting(const std::string& key, std::int64_t value) = 0;
    virtual bool booleanSetting(const std::string& key) = 0;
    virtual void setBooleanSetting(const std::string& key, bool value) = 0;

    // --- Login item -------------------------------------------------------------------
    virtual LoginItemStatus loginItemStatus() = 0;
    // Each gives the error's description when the system refuses.
    virtual std::optional<std::string> registerLoginItem() = 0;
    virtual std::optional<std::string> unregisterLoginItem() = 0;

    // --- Workspace -------------------------------------------------------------------------
    virtual void openURL(const std::string& url) = 0;
    // Shows the folder in Finder, selected.
    virtual void reveal(const std::string& path) = 0;
    // Calls `handler` on the main thread when the system announces power-off,
    // restart or log-out; the announcement waits for it to return.
    virtual void observePowerOff(Task handler) = 0;
    virtual void terminate() = 0;
};

}  // namespace tarnwick::MenuBar
