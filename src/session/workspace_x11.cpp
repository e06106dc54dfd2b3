// The X11 backend: applications are the processes that own managed windows,
// named and relaunched through the desktop entry that matches their windows.
#include "session/platform_x11.h"

#include "access/axo_x11.h"
#include "session/desktop_entry.h"
#include "session/launch.h"
#include "session/process.h"
#include "store/data_folder.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>

namespace tarnwick {

namespace {

struct Owner {
    std::int32_t pid = 0;
};

App makeApp(std::int32_t pid) { return App(std::make_shared<const Owner>(Owner{pid})); }

std::int32_t pidOf(const App& app) {
    auto* owner = static_cast<const Owner*>(app.get());
    return owner == nullptr ? 0 : owner->pid;
}

bool endsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

class X11Platform final : public Platform {
public:
    explicit X11Platform(std::unique_ptr<AXX11::Connection> x) : x_(std::move(x)) {}

    // Window access.
    bool accessibilityTrusted() override { return x_->windowManagerAnswers(); }
    // Nothing to grant on X11: any client may read and ask for window changes.
    void promptForAccessibilityTrust() override {}
    Element applicationElement(std::int32_t pid) override { return x_->application(pid); }
    // Requests do not wait for the other application; the server answers them.
    void setMessagingTimeout(const Element&, float) override {}
    std::optional<AttrValue> copyAttribute(const Element& element, const std::string& name) override {
        return x_->copyAttribute(element, name);
    }
    void setAttribute(const Element& element, const std::string& name, const AttrValue& value) override {
        x_->setAttribute(element, name, value);
    }
    // The server lists every managed window; there are no hidden ones to dig out.
    Element elementForRemoteToken(const RemoteToken&) override { return Element(); }
    bool sameElement(const Element& a, const Element& b) override { return x_->sameElement(a, b); }

    // Applications.
    std::optional<std::string> ownBundleIdentifier() override { return std::string(x11OwnIdentifier); }

    std::vector<App> runningApplications() override {
        std::vector<App> apps;
        std::vector<std::int32_t> seen;
        for (AXX11::WindowID window : x_->clientWindows()) {
            auto pid = x_->windowPid(window);
            if (!pid || std::find(seen.begin(), seen.end(), *pid) != seen.end()) continue;
            seen.push_back(*pid);
            apps.push_back(makeApp(*pid));
        }
        return apps;
    }

    std::vector<App> runningApplications(const std::string& bundleID) override {
        std::vector<App> matching;
        for (const App& app : runningApplications()) {
            Identity identity = identify(pidOf(app));
            if (identity.entry && identity.entry->id == bundleID) matching.push_back(app);
        }
        return matching;
    }

    std::optional<App> frontmostApplication() override {
        auto active = x_->activeWindow();
        if (!active) return std::nullopt;
        auto pid = x_->windowPid(*active);
        if (!pid) return std::nullopt;
        return makeApp(*pid);
    }

    AppInfo appInfo(const App& app) override {
        AppInfo info;
        info.pid = pidOf(app);
        Identity identity = identify(info.pid);
        if (identity.entry) {
            info.bundleID = identity.entry->id;
            info.bundlePath = identity.entry->file.string();
            info.name = identity.entry->name;
            // A terminal stands for the shell it runs, and that shell for its folder.
            if (identity.entry->terminal()) info.workingDirectory = shellFolder(info.pid);
        } else {
            info.bundlePath = Process::executable(info.pid);
            if (identity.wmClass && !identity.wmClass->wmClass.empty())
                info.name = identity.wmClass->wmClass;
            else
                info.name = Process::commandName(info.pid);
            // Nothing else can recognise it, or start it as it was started.
            info.commandLine = Process::commandLine(info.pid);
        }
        // Panels, docks and the desktop belong to the desktop session, which
        // starts them itself: like a Mac's background apps, they are not captured.
        if (identity.windows > 0 && identity.desktopParts == identity.windows)
            info.policy = ActivationPolicy::accessory;
        info.terminated = !Process::alive(info.pid);
        // A process counts as launched once the window manager manages a window of it.
        info.finishedLaunching = identity.windows > 0;
        return info;
    }

    // X11 has no application-wide hiding; a snapshot taken here never records it.
    void hide(const App&) override {}

    // Activating a window shows it: only one that is not minimized is brought
    // forward, so that a restore never un-minimizes a window by activating it.
    void activate(const App& app) override {
        for (AXX11::WindowID window : x_->windowsOf(pidOf(app)))
            if (!x_->minimized(window)) {
                x_->activateWindow(window);
                return;
            }
    }

    std::optional<std::string> applicationPath(const std::string& bundleID) override {
        auto installed = entries_.current();
        for (const DesktopEntries::Entry& entry : *installed)
            if (entry.id == bundleID) return entry.file.string();
        return std::nullopt;
    }

    std::optional<App> openApplication(const std::string& appPath, double timeout, ErrorSink onError) override {
        return launch(LaunchRequest{appPath, std::nullopt, std::nullopt}, timeout, std::move(onError));
    }

    std::vector<App> runningCommands(const std::vector<std::string>& commandLine) override {
        std::vector<App> matching;
        for (const App& app : runningApplications()) {
            std::int32_t pid = pidOf(app);
            if (!identify(pid).entry && Process::commandLine(pid) == commandLine) matching.push_back(app);
        }
        return matching;
    }

    std::optional<App> launch(const LaunchRequest& request, double, ErrorSink onError) override {
        std::vector<std::string> command{request.path};
        if (request.commandLine && !request.commandLine->empty()) {
            command = *request.commandLine;
        } else if (endsWith(request.path, ".desktop")) {
            // A desktop entry starts what the user's launcher would start.
            std::string why;
            auto words = DesktopEntries::installedArguments(*entries_.current(), request.path, why);
            if (!words) {
                if (onError) onError(why);
                return std::nullopt;
            }
            command = std::move(*words);
        }
        // A terminal opens its shell where the program starts; a folder that is
        // gone leaves it at home, as a launcher would.
        std::string folder = homeDirectory();
        std::error_code error;
        if (request.workingDirectory && std::filesystem::is_directory(*request.workingDirectory, error))
            folder = *request.workingDirectory;
        std::string why;
        auto pid = Launch::detached(command, folder, why);
        if (!pid) {
            if (onError) onError(why);
            return std::nullopt;
        }
        return makeApp(*pid);
    }

    // Many X programs run one process per window; each recorded process comes back as one.
    bool separateInstances() override { return true; }
    // Nothing here checks a program before it runs; a snapshot may come from anywhere.
    bool opensRecordedApplications() override { return false; }

    bool openNewWindow(const App& app, ErrorSink onError) override {
        Identity identity = identify(pidOf(app));
        auto command = identity.entry ? DesktopEntries::newWindowArguments(*identity.entry) : std::nullopt;
        if (!command || command->empty()) return false;
        std::string why;
        // The request's own process usually hands it to the running one and ends.
        if (!Launch::detached(*command, homeDirectory(), why)) {
            if (onError) onError(why);
            return false;
        }
        return true;
    }

    // Always something here, so that a capture says what it saw windows through.
    std::optional<std::string> windowManagerName() override {
        if (!x_->windowManagerAnswers()) return "none";
        return x_->windowManagerName().value_or("unnamed");
    }

    bool desktopLost() override { return x_->lost(); }

    // Windows here carry no document, so a restore never has any to reopen.
    void openDocuments(const std::vector<std::string>&, const std::string&, double, ErrorSink onError) override {
        if (onError) onError("opening documents is not supported on X11");
    }

    bool fileExists(const std::string& path) override {
        std::error_code error;
        return !path.empty() && std::filesystem::exists(path, error);
    }

    std::string homeDirectory() override { return homeLocation().value_or("/").string(); }

    Date currentDate() override { return std::chrono::system_clock::now(); }

    double monotonicSeconds() override {
        return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    }

    void sleep(double seconds) override {
        if (seconds > 0) std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    }

private:
    struct Identity {
        std::optional<DesktopEntries::Entry> entry;
        std::optional<AXX11::WindowClass> wmClass;
        size_t windows = 0;
        size_t desktopParts = 0;
    };

    // The first of the process's windows whose class matches an entry names it.
    Identity identify(std::int32_t pid) {
        Identity identity;
        auto installed = entries_.current();
        auto windows = x_->windowsOf(pid);
        identity.windows = windows.size();
        for (AXX11::WindowID window : windows)
            if (x_->partOfTheDesktop(window)) identity.desktopParts += 1;
        for (AXX11::WindowID window : windows) {
            auto wmClass = x_->windowClass(window);
            if (!wmClass) continue;
            if (!identity.wmClass) identity.wmClass = wmClass;
            std::string application = x_->gtkApplicationId(window).value_or("");
            if (auto entry = DesktopEntries::match(*installed, {wmClass->instance, wmClass->wmClass, application})) {
                identity.entry = std::move(entry);
                break;
            }
        }
        return identity;
    }

    // The folder of the shell a terminal runs: that of its first child, else its own.
    static std::optional<std::string> shellFolder(std::int32_t pid) {
        for (std::int32_t child : Process::children(pid))
            if (auto folder = Process::workingDirectory(child)) return folder;
        return Process::workingDirectory(pid);
    }

    std::unique_ptr<AXX11::Connection> x_;
    // Read again only when the application folders change: the tray runs
    // while programs are installed and removed.
    DesktopEntries::Catalog entries_;
};

}  // namespace

std::unique_ptr<Platform> openX11Platform(const std::string& display, std::string& why) {
    auto connection = AXX11::Connection::open(display, why);
    if (!connection) return nullptr;
    return std::make_unique<X11Platform>(std::move(connection));
}

}  // namespace tarnwick
