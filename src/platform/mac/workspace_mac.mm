// The macOS backend: applications through NSWorkspace, windows through AXMac.
#include "platform/mac/platform_mac.h"

#include "platform/mac/axo_mac.h"
#include "model/invariant.h"

#import <AppKit/AppKit.h>
#include <dispatch/dispatch.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <thread>

#if !defined(__APPLE__)
#error "workspace_mac.mm is for macOS"
#endif

namespace tarnwick {

namespace {

// A running application handle that keeps one strong reference to it.
App wrap(NSRunningApplication* app) {
    if (app == nil) return App();
    return App(std::shared_ptr<const void>((__bridge_retained const void*)app,
                                           [](const void* ref) { (void)CFBridgingRelease(ref); }));
}

NSRunningApplication* unwrap(const App& app) { return (__bridge NSRunningApplication*)app.get(); }

std::optional<std::string> text(NSString* value) {
    if (value == nil || value.UTF8String == nullptr) return std::nullopt;
    return std::string(value.UTF8String);
}

NSString* nsText(const std::string& value) { return [NSString stringWithUTF8String:value.c_str()]; }

std::vector<App> wrapAll(NSArray<NSRunningApplication*>* apps) {
    std::vector<App> wrapped;
    for (NSRunningApplication* app in apps) wrapped.push_back(wrap(app));
    return wrapped;
}

ActivationPolicy policyOf(NSApplicationActivationPolicy policy) {
    switch (policy) {
        case NSApplicationActivationPolicyRegular: return ActivationPolicy::regular;
        case NSApplicationActivationPolicyAccessory: return ActivationPolicy::accessory;
        case NSApplicationActivationPolicyProhibited: return ActivationPolicy::prohibited;
    }
    return ActivationPolicy::prohibited;
}

// What a completion handler leaves for the waiting thread. The handler may run
// after the wait gave up, so the box is shared, never on the waiter's stack.
struct LaunchBox {
    std::mutex lock;
    App app;
};

dispatch_time_t after(double seconds) {
    return dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(seconds * static_cast<double>(NSEC_PER_SEC)));
}

std::string describe(NSError* error) {
    return text(error.localizedDescription).value_or("unknown error");
}

class MacPlatform final : public Platform {
public:
    bool accessibilityTrusted() override { return AXMac::trusted(); }
    void promptForAccessibilityTrust() override { AXMac::promptForTrust(); }
    Element applicationElement(std::int32_t pid) override { return AXMac::application(pid); }
    void setMessagingTimeout(const Element& element, float seconds) override {
        AXMac::setMessagingTimeout(element, seconds);
    }
    std::optional<AttrValue> copyAttribute(const Element& element, const std::string& name) override {
        return AXMac::copyAttribute(element, name);
    }
    void setAttribute(const Element& element, const std::string& name, const AttrValue& value) override {
        AXMac::setAttribute(element, name, value);
    }
    Element elementForRemoteToken(const RemoteToken& token) override { return AXMac::elementForRemoteToken(token); }
    bool sameElement(const Element& a, const Element& b) override { return AXMac::sameElement(a, b); }

    std::optional<std::string> ownBundleIdentifier() override {
        @autoreleasepool {
            return text(NSBundle.mainBundle.bundleIdentifier);
        }
    }

    std::vector<App> runningApplications() override {
        @autoreleasepool {
            return wrapAll(NSWorkspace.sharedWorkspace.runningApplications);
        }
    }

    std::vector<App> runningApplications(const std::string& bundleID) override {
        @autoreleasepool {
            NSString* identifier = nsText(bundleID);
            if (identifier == nil) return {};
            return wrapAll([NSRunningApplication runningApplicationsWithBundleIdentifier:identifier]);
        }
    }

    std::optional<App> frontmostApplication() override {
        @autoreleasepool {
            NSRunningApplication* front = NSWorkspace.sharedWorkspace.frontmostApplication;
            if (front == nil) return std::nullopt;
            return wrap(front);
        }
    }

    AppInfo appInfo(const App& handle) override {
        @autoreleasepool {
            NSRunningApplication* app = unwrap(handle);
            AppInfo info;
            info.pid = app.processIdentifier;
            info.policy = policyOf(app.activationPolicy);
            info.bundleID = text(app.bundleIdentifier);
            info.bundlePath = text(app.bundleURL.path);
            info.name = text(app.localizedName);
            info.hidden = app.hidden;
            info.terminated = app.terminated;
            info.finishedLaunching = app.finishedLaunching;
            return info;
        }
    }

    void hide(const App& app) override { [unwrap(app) hide]; }

    void activate(const App& app) override { [unwrap(app) activateWithOptions:0]; }

    std::optional<std::string> applicationPath(const std::string& bundleID) override {
        @autoreleasepool {
            NSString* identifier = nsText(bundleID);
            if (identifier == nil) return std::nullopt;
            return text([NSWorkspace.sharedWorkspace URLForApplicationWithBundleIdentifier:identifier].path);
        }
    }

    std::optional<App> openApplication(const std::string& appPath, double timeout, ErrorSink onError) override {
        @autoreleasepool {
            NSString* path = nsText(appPath);
            if (path == nil) return std::nullopt;
            NSWorkspaceOpenConfiguration* configuration = [NSWorkspaceOpenConfiguration configuration];
            configuration.activates = NO;
            auto box = std::make_shared<LaunchBox>();
            dispatch_semaphore_t answered = dispatch_semaphore_create(0);
            // Runs on a queue of the system's choosing: store, report, signal, nothing more.
            [NSWorkspace.sharedWorkspace openApplicationAtURL:[NSURL fileURLWithPath:path]
                                                configuration:configuration
                                            completionHandler:^(NSRunningApplication* app, NSError* error) {
                                                if (error != nil && onError) onError(describe(error));
                                                {
                                                    std::lock_guard guard(box->lock);
                                                    box->app = wrap(app);
                                                }
                                                dispatch_semaphore_signal(answered);
                                            }];
            dispatch_semaphore_wait(answered, after(timeout));
            std::lock_guard guard(box->lock);
            if (!box->app) return std::nullopt;
            return box->app;
        }
    }

    void openDocuments(const std::vector<std::string>& urls, const std::string& appPath, double timeout,
                       ErrorSink onError) override {
        @autoreleasepool {
            NSString* path = nsText(appPath);
            if (path == nil) return;
            NSMutableArray<NSURL*>* documents = [NSMutableArray arrayWithCapacity:urls.size()];
            for (const std::string& url : urls) {
                NSString* written = nsText(url);
                NSURL* document = written == nil ? nil : [NSURL URLWithString:written];
                if (document != nil) [documents addObject:document];
            }
            if (documents.count == 0) return;
            NSWorkspaceOpenConfiguration* configuration = [NSWorkspaceOpenConfiguration configuration];
            configuration.activates = NO;
            dispatch_semaphore_t answered = dispatch_semaphore_create(0);
            [NSWorkspace.sharedWorkspace openURLs:documents
                             withApplicationAtURL:[NSURL fileURLWithPath:path]
                                    configuration:configuration
                                completionHandler:^(NSRunningApplication* app, NSError* error) {
                                    (void)app;
                                    if (error != nil && onError) onError(describe(error));
                                    dispatch_semaphore_signal(answered);
                                }];
            dispatch_semaphore_wait(answered, after(timeout));
        }
    }

    // Applications are started by their bundles here, never by a command line.
    std::vector<App> runningCommands(const std::vector<std::string>&) override { return {}; }
    std::optional<App> launch(const LaunchRequest& request, double timeout, ErrorSink onError) override {
        if (request.commandLine || request.workingDirectory) {
            if (onError) onError("starting by command line is not supported on macOS");
            return std::nullopt;
        }
        return openApplication(request.path, timeout, std::move(onError));
    }
    bool separateInstances() override { return false; }
    // Launch Services checks the signature of the bundle it opens.
    bool opensRecordedApplications() override { return true; }
    // A bundle is opened, not run by a command line that could be shown beforehand.
    std::optional<std::vector<std::string>> launchArguments(const std::string&) override { return std::nullopt; }
    // A Mac restore reopens windows through documents and scripts, never this way.
    bool openNewWindow(const App&, ErrorSink) override { return false; }
    std::optional<std::string> windowManagerName() override { return std::nullopt; }
    // The window server outlives every application.
    bool desktopLost() override { return false; }
    // Frames are put back as recorded: the system itself keeps windows on a screen.
    std::vector<Output> outputs() override { return {}; }

    bool fileExists(const std::string& path) override {
        @autoreleasepool {
            NSString* file = nsText(path);
            return file != nil && [NSFileManager.defaultManager fileExistsAtPath:file];
        }
    }

    std::string homeDirectory() override {
        @autoreleasepool {
            auto home = text(NSHomeDirectory());
            if (!home || home->empty()) invariantFailed("the user has no home directory");
            return *home;
        }
    }

    Date currentDate() override { return std::chrono::system_clock::now(); }

    double monotonicSeconds() override {
        return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    }

    void sleep(double seconds) override {
        if (seconds <= 0) return;
        if (!NSThread.isMainThread) {
            std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
            return;
        }
        // HACK: NSRunningApplication learns that a launch has finished only as
        // the main run loop turns. The command-line restore waits on the main
        // thread, so it turns the loop for as long as it waits.
        auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        for (;;) {
            double left = std::chrono::duration<double>(deadline - std::chrono::steady_clock::now()).count();
            if (left <= 0) return;
            @autoreleasepool {
                NSDate* limit = [NSDate dateWithTimeIntervalSinceNow:left];
                // NO: the loop has no sources yet and returned at once; wait a little instead.
                if (![NSRunLoop.currentRunLoop runMode:NSDefaultRunLoopMode beforeDate:limit])
                    std::this_thread::sleep_for(std::chrono::duration<double>(std::min(left, 0.01)));
            }
        }
    }
};

}  // namespace

Platform& macPlatform() {
    static MacPlatform backend;
    return backend;
}

}  // namespace tarnwick
