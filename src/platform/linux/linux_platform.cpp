// The applications half that every Linux backend shares.
#include "platform/linux/linux_platform.h"

#include "platform/linux/launch.h"
#include "platform/linux/process.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <pwd.h>
#include <system_error>
#include <unistd.h>

namespace tarnwick {

namespace {

struct Owner {
    std::int32_t pid = 0;
};

bool isDesktopEntry(const std::string& path) { return path.ends_with(".desktop"); }

// The folder of the shell a terminal runs: that of its first child, else its own.
std::optional<std::string> shellFolder(std::int32_t pid) {
    for (std::int32_t child : Process::children(pid))
        if (auto folder = Process::workingDirectory(child)) return folder;
    return Process::workingDirectory(pid);
}

}  // namespace

App LinuxPlatform::makeApp(std::int32_t pid) { return App(std::make_shared<const Owner>(Owner{pid})); }

std::int32_t LinuxPlatform::pidOf(const App& app) {
    auto* owner = static_cast<const Owner*>(app.get());
    return owner == nullptr ? 0 : owner->pid;
}

std::vector<App> LinuxPlatform::runningApplications() {
    std::vector<App> apps;
    for (std::int32_t pid : windowOwners()) apps.push_back(makeApp(pid));
    return apps;
}

std::vector<App> LinuxPlatform::runningApplications(const std::string& bundleID) {
    std::vector<App> matching;
    for (std::int32_t pid : windowOwners()) {
        Identity identity = identify(pid);
        if (identity.entry && identity.entry->id == bundleID) matching.push_back(makeApp(pid));
    }
    return matching;
}

std::optional<App> LinuxPlatform::frontmostApplication() {
    auto pid = activeOwner();
    if (!pid) return std::nullopt;
    return makeApp(*pid);
}

AppInfo LinuxPlatform::appInfo(const App& app) {
    AppInfo info;
    info.pid = pidOf(app);
    Identity identity = identify(info.pid);
    const std::optional<std::string> program = Process::executable(info.pid);
    if (identity.entry) {
        info.bundleID = identity.entry->id;
        info.bundlePath = identity.entry->file.string();
        info.name = identity.entry->name;
        // A terminal stands for the shell it runs, and that shell for its folder.
        if (identity.entry->terminal()) info.workingDirectory = shellFolder(info.pid);
    } else {
        info.bundlePath = program;
        if (!identity.className.empty())
            info.name = identity.className;
        else
            info.name = Process::commandName(info.pid);
        // Nothing else can recognise it, or start it as it was started.
        info.commandLine = Process::commandLine(info.pid);
    }
    // Panels, docks and the desktop belong to the desktop session, which
    // starts them itself: like a Mac's background apps, they are not captured.
    if (identity.windows > 0 && identity.desktopParts == identity.windows)
        info.policy = ActivationPolicy::accessory;
    // A process whose program can be read has not ended: an ended one that
    // is not yet reaped has no memory left, and no program in it. Only
    // without it is its state read, which costs the kernel more.
    info.terminated = !program && !Process::alive(info.pid);
    // A process counts as launched once the desktop manages a window of it.
    info.finishedLaunching = identity.windows > 0;
    return info;
}

std::optional<std::string> LinuxPlatform::applicationPath(const std::string& bundleID) {
    auto installed = entries_.current();
    for (const DesktopEntries::Entry& entry : *installed)
        if (entry.id == bundleID) return entry.file.string();
    return std::nullopt;
}

std::optional<App> LinuxPlatform::openApplication(const std::string& appPath, double timeout, ErrorSink onError) {
    return launch(LaunchRequest{appPath, std::nullopt, std::nullopt}, timeout, std::move(onError));
}

std::vector<App> LinuxPlatform::runningCommands(const std::vector<std::string>& commandLine) {
    std::vector<App> matching;
    for (std::int32_t pid : windowOwners())
        if (!identify(pid).entry && Process::commandLine(pid) == commandLine) matching.push_back(makeApp(pid));
    return matching;
}

std::optional<App> LinuxPlatform::launch(const LaunchRequest& request, double, ErrorSink onError) {
    std::vector<std::string> command{request.path};
    if (request.commandLine && !request.commandLine->empty()) {
        command = *request.commandLine;
    } else if (isDesktopEntry(request.path)) {
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

std::optional<std::vector<std::string>> LinuxPlatform::launchArguments(const std::string& path) {
    if (!isDesktopEntry(path)) return std::nullopt;
    auto entry = DesktopEntries::read(path, std::filesystem::path(path).filename().string());
    return entry ? DesktopEntries::arguments(*entry) : std::nullopt;
}

bool LinuxPlatform::openNewWindow(const App& app, ErrorSink onError) {
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

void LinuxPlatform::openDocuments(const std::vector<std::string>&, const std::string&, double, ErrorSink onError) {
    if (onError) onError("opening documents is not supported " + desktopKind());
}

bool LinuxPlatform::fileExists(const std::string& path) {
    std::error_code error;
    return !path.empty() && std::filesystem::exists(path, error);
}

// $HOME when it is a path, else the user's entry in the password database.
std::string LinuxPlatform::homeDirectory() {
    if (const char* home = std::getenv("HOME"); home && *home == '/') return home;
    if (const passwd* user = getpwuid(getuid()); user && user->pw_dir && *user->pw_dir == '/') return user->pw_dir;
    return "/";
}

Date LinuxPlatform::currentDate() { return std::chrono::system_clock::now(); }

double LinuxPlatform::monotonicSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// The first of the process's windows that matches an entry names it.
LinuxPlatform::Identity LinuxPlatform::identify(std::int32_t pid) {
    Identity identity;
    auto installed = entries_.current();
    auto windows = windowsOwnedBy(pid);
    identity.windows = windows.size();
    for (const OwnedWindow& window : windows)
        if (window.desktopPart) identity.desktopParts += 1;
    for (const OwnedWindow& window : windows) {
        if (identity.className.empty()) identity.className = window.className;
        if (auto entry = DesktopEntries::match(*installed, {window.instance, window.className, window.applicationId})) {
            identity.entry = std::move(entry);
            break;
        }
    }
    return identity;
}

}  // namespace tarnwick
