// The menu-bar application's shell on macOS: the status item and its menu
// drawn from the portable model, the Edit main menu, alerts, user defaults,
// the login item, the will-power-off observer, timers and GCD queues.
#include "app/application.h"

#include "app/app_delegate.h"
#include "app/texts.h"

#import <AppKit/AppKit.h>
#import <ServiceManagement/ServiceManagement.h>
#include <dispatch/dispatch.h>

#include <cstdint>
#include <memory>

#if !defined(__APPLE__)
#error "shell_mac.mm is for macOS"
#endif

using tarnwick::MenuBar::Command;
using tarnwick::MenuBar::Menu;
using tarnwick::MenuBar::MenuItem;
using tarnwick::MenuBar::Task;

@class TWApplicationDelegate;

namespace {

std::string text(NSString* _Nullable value) {
    if (value == nil || value.UTF8String == nullptr) return std::string();
    return std::string(value.UTF8String);
}

// Text that is not UTF-8 cannot come from our own model; an empty string keeps AppKit's nonnull promise.
NSString* nsText(const std::string& value) {
    NSString* made = [NSString stringWithUTF8String:value.c_str()];
    return made != nil ? made : [NSString stringWithUTF8String:""];
}

dispatch_time_t fromNow(double seconds) {
    return dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(seconds * static_cast<double>(NSEC_PER_SEC)));
}

class MacTimer final : public tarnwick::MenuBar::Timer {
public:
    explicit MacTimer(NSTimer* timer) : timer_(timer) {}
    ~MacTimer() override { [timer_ invalidate]; }
    void invalidate() override { [timer_ invalidate]; }

private:
    NSTimer* timer_;
};

class MacSignal final : public tarnwick::MenuBar::Signal {
public:
    void signal() override { dispatch_semaphore_signal(semaphore_); }
    bool wait(double seconds) { return dispatch_semaphore_wait(semaphore_, fromNow(seconds)) == 0; }

private:
    dispatch_semaphore_t semaphore_ = dispatch_semaphore_create(0);
};

// The shell's half in C++: everything the portable delegate asks of the system.
class MacShell final : public tarnwick::MenuBar::Shell {
public:
    explicit MacShell(TWApplicationDelegate* owner)
        : owner_(owner),
          statusItem_([NSStatusBar.systemStatusBar statusItemWithLength:NSSquareStatusItemLength]),
          work_(dispatch_queue_create("tarnwick.work", DISPATCH_QUEUE_SERIAL)),
          shortDate_([NSDateFormatter new]) {
        // No locale or time zone is set: the user's current ones apply.
        shortDate_.dateFormat = nsText("EEE d MMM, HH:mm");
    }

    // Refills the status menu from the model just before it opens.
    void fill(NSMenu* menu) {
        [menu removeAllItems];
        if (!build_) return;
        for (const MenuItem& item : build_()) [menu addItem:draw(item)];
    }

    // A status-menu item was chosen.
    void choose(NSMenuItem* sender) {
        id command = sender.representedObject;
        if (!perform_ || command == nil || ![command isKindOfClass:NSNumber.class]) return;
        perform_(static_cast<Command>(static_cast<NSNumber*>(command).integerValue), sender.tag);
    }

    void powerOff() {
        if (powerOff_) powerOff_();
    }

    // --- Threads and time ---------------------------------------------------------------------
    bool onMainThread() override { return NSThread.isMainThread; }
    void async(Task task) override { dispatch_async(work_, ^{ task(); }); }
    void toMain(Task task) override { dispatch_async(dispatch_get_main_queue(), ^{ task(); }); }
    void after(double seconds, Task task) override {
        dispatch_after(fromNow(seconds), dispatch_get_main_queue(), ^{ task(); });
    }
    std::shared_ptr<tarnwick::MenuBar::Timer> repeating(double interval, Task tick) override {
        NSTimer* timer = [NSTimer timerWithTimeInterval:interval repeats:YES block:^(NSTimer* _Nonnull) { tick(); }];
        // In the common modes, so that timed snapshots also fire while the menu or an alert is open.
        [NSRunLoop.mainRunLoop addTimer:timer forMode:NSRunLoopCommonModes];
        return std::make_shared<MacTimer>(timer);
    }
    std::shared_ptr<tarnwick::MenuBar::Signal> makeSignal() override { return std::make_shared<MacSignal>(); }
    bool wait(tarnwick::MenuBar::Signal& signal, double seconds) override {
        return static_cast<MacSignal&>(signal).wait(seconds);
    }

    // --- The visible parts ------------------------------------------------------------------------
    void showStatusItem(const std::string& symbol, const std::string& accessibilityDescription,
                        std::function<Menu()> build, std::function<void(Command, std::int64_t)> perform) override {
        build_ = std::move(build);
        perform_ = std::move(perform);
        if (NSStatusBarButton* button = statusItem_.button)
            button.image = [NSImage imageWithSystemSymbolName:nsText(symbol)
                                     accessibilityDescription:nsText(accessibilityDescription)];
        NSMenu* menu = [[NSMenu alloc] initWithTitle:nsText("")];
        menu.delegate = (id<NSMenuDelegate>)owner_;
        statusItem_.menu = menu;
    }

    void setMainMenu(const Menu& model) override {
        NSMenu* menu = [[NSMenu alloc] initWithTitle:nsText("")];
        for (const MenuItem& item : model) [menu addItem:draw(item)];
        if (NSApp != nil) NSApp.mainMenu = menu;
    }

    void activate() override { [NSApp activateIgnoringOtherApps:YES]; }

    int runAlert(const tarnwick::MenuBar::Alert& model) override {
        NSAlert* alert = [NSAlert new];
        alert.messageText = nsText(model.message);
        alert.informativeText = nsText(model.informative);
        for (const std::string& title : model.buttons) [alert addButtonWithTitle:nsText(title)];
        return static_cast<int>([alert runModal] - NSAlertFirstButtonReturn);
    }

    std::string shortDate(tarnwick::Date date) override {
        double seconds = std::chrono::duration<double>(date.time_since_epoch()).count();
        return text([shortDate_ stringFromDate:[NSDate dateWithTimeIntervalSince1970:seconds]]);
    }

    tarnwick::MenuBar::SystemTexts systemTexts() override { return tarnwick::MenuBar::macTexts(); }

    // --- Settings ----------------------------------------------------------------------------------
    std::int64_t integerSetting(const std::string& key) override {
        return [NSUserDefaults.standardUserDefaults integerForKey:nsText(key)];
    }
    void setIntegerSetting(const std::string& key, std::int64_t value) override {
        [NSUserDefaults.standardUserDefaults setInteger:static_cast<NSInteger>(value) forKey:nsText(key)];
    }
    bool booleanSetting(const std::string& key) override {
        return [NSUserDefaults.standardUserDefaults boolForKey:nsText(key)];
    }
    void setBooleanSetting(const std::string& key, bool value) override {
        [NSUserDefaults.standardUserDefaults setBool:value ? YES : NO forKey:nsText(key)];
    }

    // --- Login item ------------------------------------------------------------------------------------
    tarnwick::MenuBar::LoginItemStatus loginItemStatus() override {
        switch (SMAppService.mainAppService.status) {
        case SMAppServiceStatusNotRegistered: return tarnwick::MenuBar::LoginItemStatus::notRegistered;
        case SMAppServiceStatusEnabled: return tarnwick::MenuBar::LoginItemStatus::enabled;
        case SMAppServiceStatusRequiresApproval: return tarnwick::MenuBar::LoginItemStatus::requiresApproval;
        case SMAppServiceStatusNotFound: return tarnwick::MenuBar::LoginItemStatus::notFound;
        }
        return tarnwick::MenuBar::LoginItemStatus::notFound;
    }
    std::optional<std::string> registerLoginItem() override {
        NSError* error = nil;
        if ([SMAppService.mainAppService registerAndReturnError:&error]) return std::nullopt;
        return text(error.localizedDescription);
    }
    std::optional<std::string> unregisterLoginItem() override {
        NSError* error = nil;
        if ([SMAppService.mainAppService unregisterAndReturnError:&error]) return std::nullopt;
        return text(error.localizedDescription);
    }

    // --- Workspace ----------------------------------------------------------------------------------------
    void openURL(const std::string& address) override {
        if (NSURL* url = [NSURL URLWithString:nsText(address)]) [NSWorkspace.sharedWorkspace openURL:url];
    }
    void reveal(const std::string& path) override {
        NSURL* folder = [NSURL fileURLWithPath:nsText(path)];
        [NSWorkspace.sharedWorkspace activateFileViewerSelectingURLs:[NSArray arrayWithObject:folder]];
    }
    void observePowerOff(Task handler) override;
    void terminate() override { [NSApp terminate:nil]; }

private:
    // One AppKit item for a model item, with its submenu.
    NSMenuItem* draw(const MenuItem& item) {
        if (item.separator) return [NSMenuItem separatorItem];
        SEL action = nil;
        if (item.command != Command::none) action = @selector(performCommand:);
        else if (!item.responderAction.empty()) action = NSSelectorFromString(nsText(item.responderAction));
        NSMenuItem* drawn = [[NSMenuItem alloc] initWithTitle:nsText(item.title)
                                                       action:action
                                                keyEquivalent:nsText(item.keyEquivalent)];
        if (item.command != Command::none) {
            drawn.target = owner_;
            drawn.representedObject = [NSNumber numberWithInteger:static_cast<NSInteger>(item.command)];
        }
        drawn.tag = static_cast<NSInteger>(item.tag);
        drawn.state = item.checked ? NSControlStateValueOn : NSControlStateValueOff;
        drawn.enabled = item.enabled ? YES : NO;
        if (!item.submenu.empty()) {
            NSMenu* submenu = [[NSMenu alloc] initWithTitle:nsText(item.title)];
            for (const MenuItem& child : item.submenu) [submenu addItem:draw(child)];
            drawn.submenu = submenu;
        }
        return drawn;
    }

    __weak TWApplicationDelegate* owner_;
    NSStatusItem* statusItem_;  // held strongly: a released item leaves the menu bar
    dispatch_queue_t work_;
    NSDateFormatter* shortDate_;
    std::function<Menu()> build_;
    std::function<void(Command, std::int64_t)> perform_;
    Task powerOff_;
};

}  // namespace

// The Objective-C side: application delegate, status-menu delegate and the
// target of the menu's commands, all forwarded to the portable delegate.
@interface TWApplicationDelegate : NSObject <NSApplicationDelegate, NSMenuDelegate>
- (void)performCommand:(NSMenuItem*)sender;
- (void)willPowerOff:(NSNotification*)notification;
@end

@implementation TWApplicationDelegate {
    std::unique_ptr<MacShell> _shell;
    std::shared_ptr<tarnwick::MenuBar::AppDelegate> _delegate;
    BOOL _observingPowerOff;
}

- (instancetype)init {
    self = [super init];
    if (self) {
        _shell = std::make_unique<MacShell>(self);
        _delegate = tarnwick::MenuBar::AppDelegate::make(*_shell);
    }
    return self;
}

- (void)applicationDidFinishLaunching:(NSNotification*)notification {
    (void)notification;
    _delegate->applicationDidFinishLaunching();
}

- (void)applicationWillTerminate:(NSNotification*)notification {
    (void)notification;
    [self stopObservingPowerOff];
}

- (void)menuNeedsUpdate:(NSMenu*)menu {
    _shell->fill(menu);
}

- (void)performCommand:(NSMenuItem*)sender {
    _shell->choose(sender);
}

- (void)willPowerOff:(NSNotification*)notification {
    (void)notification;
    _shell->powerOff();
}

// Workspace notifications are posted only on the workspace's own center.
- (void)startObservingPowerOff {
    if (_observingPowerOff) return;
    _observingPowerOff = YES;
    [NSWorkspace.sharedWorkspace.notificationCenter addObserver:self
                                                       selector:@selector(willPowerOff:)
                                                           name:NSWorkspaceWillPowerOffNotification
                                                         object:nil];
}

- (void)stopObservingPowerOff {
    if (!_observingPowerOff) return;
    _observingPowerOff = NO;
    [NSWorkspace.sharedWorkspace.notificationCenter removeObserver:self];
}

@end

namespace {

void MacShell::observePowerOff(Task handler) {
    powerOff_ = std::move(handler);
    [owner_ startObservingPowerOff];
}

}  // namespace

namespace tarnwick::MenuBar {

int runApplication(int, char**) {
    @autoreleasepool {
        NSApplication* application = NSApplication.sharedApplication;
        // The application holds its delegate weakly; this one lives until the loop ends.
        TWApplicationDelegate* delegate = [TWApplicationDelegate new];
        application.delegate = delegate;
        [application setActivationPolicy:NSApplicationActivationPolicyAccessory];
        [application run];
    }
    return 0;
}

}  // namespace tarnwick::MenuBar
