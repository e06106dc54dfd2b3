// The delegate's launch sequence, save, power-off save, restore flow and commands.
#include "app/app_delegate.h"

#include "access/axo.h"
#include "app/status_menu.h"
#include "app/texts.h"
#include "model/invariant.h"
#include "model/printable.h"
#include "session/capture.h"
#include "store/data_folder.h"
#include "store/log.h"
#include "store/store.h"

namespace tarnwick::MenuBar {

namespace {

// The power-off save holds the shutdown back for at most this long.
constexpr double powerOffWait = 10.0;
// The one timed snapshot after launch comes this long after it.
constexpr double firstSnapshotDelay = 60.0;

}  // namespace

std::shared_ptr<AppDelegate> AppDelegate::make(Shell& shell, std::optional<std::string> unavailable) {
    return std::make_shared<AppDelegate>(shell, std::move(unavailable));
}

AppDelegate::AppDelegate(Shell& shell, std::optional<std::string> unavailable)
    : shell_(shell), unavailable_(std::move(unavailable)) {}

void AppDelegate::onMain() const {
    if (!shell_.onMainThread()) invariantFailed("the application's state was touched off the main thread");
}

std::int64_t AppDelegate::autosaveMinutes() {
    onMain();
    std::int64_t minutes = shell_.integerSetting(autosaveMinutesKey);
    if (minutes <= maxAutosaveMinutes) return minutes;
    // A hand-edited interval this long would overflow the timer and fire
    // without pause; it is read on every menu opening, so it is logged once.
    if (ignoredMinutes_ != minutes) {
        ignoredMinutes_ = minutes;
        log(std::string("settings: ") + autosaveMinutesKey + " " + std::to_string(minutes) + " is beyond " +
            std::to_string(maxAutosaveMinutes) + " minutes; ignored, timed snapshots are off");
    }
    return 0;
}

void AppDelegate::applicationDidFinishLaunching() {
    onMain();
    std::weak_ptr<AppDelegate> weak = weak_from_this();
    shell_.showStatusItem(
        "rectangle.stack", "Tarnwick",
        [weak] {
            auto self = weak.lock();
            return self ? self->menuNeedsUpdate() : Menu{};
        },
        [weak](Command command, std::int64_t tag) {
            if (auto self = weak.lock()) self->perform(command, tag);
        });
    shell_.setMainMenu(editMainMenu());

    auto stored = Store::all();
    lastSaved_ = stored.empty() ? std::nullopt : std::optional<Date>(stored.front().snapshot.date);

    if (!unavailable_ && !AXO::trusted()) AXO::promptForTrust();

    // Registered once, on the first launch only: a user who removed the login
    // item by hand is not overruled on the next start.
    if (!shell_.booleanSetting(loginItemConfiguredKey)) {
        shell_.setBooleanSetting(loginItemConfiguredKey, true);
        if (auto error = shell_.registerLoginItem()) log("login item: " + printable(*error));
    }

    shell_.async([] { Store::prune(); });
    scheduleAutosave();
    shell_.after(firstSnapshotDelay, [weak] {
        auto self = weak.lock();
        if (self && self->autosaveMinutes() >= 1) self->save("auto");
    });
    // Nothing to save: the power-off is not held back for it.
    if (!unavailable_)
        shell_.observePowerOff([weak] {
            if (auto self = weak.lock()) self->willPowerOff();
        });
    log("launched; boot time " + plainDateText(Store::bootTime()));
}

void AppDelegate::scheduleAutosave() {
    onMain();
    if (timer_) timer_->invalidate();
    timer_.reset();
    if (unavailable_) return;
    std::int64_t minutes = autosaveMinutes();
    if (minutes < 1) return;
    std::int64_t seconds = 0;
    if (__builtin_mul_overflow(minutes, std::int64_t{60}, &seconds))
        invariantFailed("the autosave interval of " + std::to_string(minutes) + " minutes overflows");
    std::weak_ptr<AppDelegate> weak = weak_from_this();
    timer_ = shell_.repeating(static_cast<double>(seconds), [weak] {
        if (auto self = weak.lock()) self->save("auto");
    });
}

void AppDelegate::save(const std::string& reason, Task completion) {
    onMain();
    // Dropped, not queued: the running operation's own snapshot is recent enough.
    // Where the desktop cannot be read, a capture would store an empty session.
    if (busy_ || unavailable_) return;
    busy_ = "Saving\u2026";
    std::weak_ptr<AppDelegate> weak = weak_from_this();
    Shell* shell = &shell_;
    shell_.async([weak, shell, reason, completion = std::move(completion)] {
        Snapshot snapshot = Capture::snapshot(reason);
        Store::Saved saved = Store::write(snapshot);
        log(saveLine(reason, snapshot, saved == Store::Saved::written));
        shell->toMain([weak, date = snapshot.date, saved, completion] {
            if (auto self = weak.lock()) {
                self->busy_.reset();
                // Also when the store skipped it: the session was checked and found
                // safe on disk. A failed save left nothing safe, so the date stays.
                if (saved != Store::Saved::failed) self->lastSaved_ = date;
                self->runConfirmedRestore();
            }
            if (completion) completion();
        });
    });
}

void AppDelegate::willPowerOff() {
    onMain();
    // Skipped rather than run beside another capture or a restore.
    if (busy_ || unavailable_) return;
    std::shared_ptr<Signal> done = shell_.makeSignal();
    shell_.async([done] {
        Snapshot snapshot = Capture::snapshot("shutdown");
        Store::save(snapshot);
        log(saveLine("shutdown", snapshot, true));
        done->signal();
    });
    // The one place the main thread blocks; after the deadline the shutdown
    // goes on and the queued work finishes if the process still lives.
    shell_.wait(*done, powerOffWait);
}

void AppDelegate::restore(const Snapshot& snapshot) {
    onMain();
    if (busy_ || unavailable_) return;
    // A snapshot from elsewhere starts only what this machine's entries name,
    // unless the user vouches for it here.
    Snapshot chosen = snapshot;
    bool asked = false;
    if (auto starts = Restore::startsNeedingTrust(snapshot); !starts.empty()) {
        shell_.activate();
        int answer = shell_.runAlert(foreignSnapshotQuestion(starts));
        if (answer == 2) return;
        chosen.trusted = answer == 1;
        asked = true;
    }
    if (!AXO::trusted()) {
        shell_.activate();
        SystemTexts texts = shell_.systemTexts();
        if (shell_.runAlert(texts.placementWarning) != 0) {
            AXO::promptForTrust();
            if (texts.settingsURL) shell_.openURL(*texts.settingsURL);
            return;
        }
        asked = true;
    }
    // The alerts are modal but the main queue keeps turning under them: a save
    // (the one a minute after launch, a timed one) may have started meanwhile.
    // The user asked for this restore, so it waits for the save instead of
    // being dropped.
    if (asked && busy_) {
        confirmed_.push_back(std::move(chosen));
        return;
    }
    startRestore(chosen);
}

void AppDelegate::runConfirmedRestore() {
    onMain();
    if (busy_ || confirmed_.empty()) return;
    Snapshot snapshot = std::move(confirmed_.front());
    confirmed_.pop_front();
    startRestore(snapshot);
}

void AppDelegate::startRestore(const Snapshot& snapshot) {
    onMain();
    busy_ = "Restoring\u2026";
    // No timed snapshot while windows are moving; the report arms a new timer.
    if (timer_) timer_->invalidate();
    std::weak_ptr<AppDelegate> weak = weak_from_this();
    Shell* shell = &shell_;
    shell_.async([weak, shell, snapshot] {
        Restore::Result result = Restore::run(snapshot, [weak, shell](const std::string& text) {
            shell->toMain([weak, text] {
                if (auto self = weak.lock()) self->busy_ = text;
            });
        });
        log(restoreLine(result));
        shell->toMain([weak, result] {
            if (auto self = weak.lock()) self->report(result);
        });
    });
}

void AppDelegate::report(const Restore::Result& result) {
    onMain();
    busy_.reset();
    scheduleAutosave();
    shell_.activate();
    shell_.runAlert(restoreReport(result));
    // A restore confirmed at a warning that opened while this one ran; a save
    // that started under this report runs it instead when it ends.
    runConfirmedRestore();
}

Menu AppDelegate::menuNeedsUpdate() {
    onMain();
    MenuState state;
    state.busy = busy_;
    state.lastSaved = lastSaved_;
    state.autosaveMinutes = autosaveMinutes();
    // One reading of the store serves both the list and the before-boot entry.
    auto stored = Store::all();
    if (const Store::Entry* preBoot = Store::beforeBoot(stored)) state.beforeBoot = preBoot->snapshot;
    for (Store::Entry& entry : stored) state.snapshots.push_back(std::move(entry.snapshot));
    state.unavailable = unavailable_;
    // Without a backend there is no window access to ask about.
    state.trusted = unavailable_ || AXO::trusted();
    state.loginItemEnabled = shell_.loginItemStatus() == LoginItemStatus::enabled;
    SystemTexts texts = shell_.systemTexts();
    state.showFolderTitle = texts.showFolder;
    state.grantTitle = texts.grantAccess;
    state.grantable = texts.settingsURL.has_value();
    return buildStatusMenu(state, [this](Date date) { return shell_.shortDate(date); });
}

void AppDelegate::perform(Command command, std::int64_t tag) {
    switch (command) {
    case Command::none: return;
    case Command::saveNow: return saveNow();
    case Command::setAutosave: return setAutosave(tag);
    case Command::restoreLatest: return restoreLatest();
    case Command::restorePreBoot: return restorePreBoot();
    case Command::restoreIndexed: return restoreIndexed(tag);
    case Command::toggleLogin: return toggleLogin();
    case Command::openAccessibility: return openAccessibility();
    case Command::showFolder: return showFolder();
    case Command::quit: return quit();
    }
}

void AppDelegate::saveNow() { save("manual"); }

void AppDelegate::setAutosave(std::int64_t minutes) {
    shell_.setIntegerSetting(autosaveMinutesKey, minutes);
    scheduleAutosave();
}

void AppDelegate::restoreLatest() {
    auto stored = Store::all();
    if (!stored.empty()) restore(stored.front().snapshot);
}

void AppDelegate::restorePreBoot() {
    if (auto snapshot = Store::beforeBoot()) restore(*snapshot);
}

void AppDelegate::restoreIndexed(std::int64_t position) {
    if (position < 0) invariantFailed("a negative menu tag: " + std::to_string(position));
    // The store as it is at the click: if a snapshot came or went since the
    // menu was built, the same position names another snapshot.
    auto stored = Store::all();
    if (static_cast<std::uint64_t>(position) >= stored.size()) return;
    restore(stored[static_cast<size_t>(position)].snapshot);
}

void AppDelegate::toggleLogin() {
    bool enabled = shell_.loginItemStatus() == LoginItemStatus::enabled;
    auto error = enabled ? shell_.unregisterLoginItem() : shell_.registerLoginItem();
    if (error) log("login item toggle: " + printable(*error));
}

void AppDelegate::openAccessibility() {
    AXO::promptForTrust();
    if (auto url = shell_.systemTexts().settingsURL) shell_.openURL(*url);
}

void AppDelegate::showFolder() { shell_.reveal(supportDir().string()); }

void AppDelegate::quit() { shell_.terminate(); }

}  // namespace tarnwick::MenuBar
