// What every Linux backend shares: applications are the processes that own
// the windows the desktop manages, named and relaunched through the desktop
// entry their windows match, or, with none, by their command line. A backend
// says which windows each process owns; the rest is here.
#pragma once

#include "platform/linux/desktop_entry.h"
#include "platform/platform.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#if defined(__APPLE__)
#error "linux_platform.h is for Linux backends"
#endif

namespace tarnwick {

// Tarnwick's own identifier on a Linux desktop: its desktop entry's id.
inline constexpr const char* linuxOwnIdentifier = "com.tarnwick.Tarnwick.desktop";

class LinuxPlatform : public Platform {
public:
    // Applications.
    std::optional<std::string> ownBundleIdentifier() override { return std::string(linuxOwnIdentifier); }
    std::vector<App> runningApplications() override;
    std::vector<App> runningApplications(const std::string& bundleID) override;
    std::optional<App> frontmostApplication() override;
    AppInfo appInfo(const App& app) override;
    // No Linux desktop hides a whole application; a snapshot taken here never records it.
    void hide(const App&) override {}
    std::optional<std::string> applicationPath(const std::string& bundleID) override;
    std::optional<App> openApplication(const std::string& appPath, double timeout, ErrorSink onError) override;
    std::vector<App> runningCommands(const std::vector<std::string>& commandLine) override;
    std::optional<App> launch(const LaunchRequest& request, double timeout, ErrorSink onError) override;
    std::optional<std::vector<std::string>> launchArguments(const std::string& path) override;
    // Many programs run one process per window; each recorded process comes back as one.
    bool separateInstances() override { return true; }
    // Nothing here checks a program before it runs; a snapshot may come from anywhere.
    bool opensRecordedApplications() override { return false; }
    bool openNewWindow(const App& app, ErrorSink onError) override;
    // Windows here carry no document, so a restore never has any to reopen.
    void openDocuments(const std::vector<std::string>& urls, const std::string& appPath, double timeout,
                       ErrorSink onError) override;

    // Files, the user and time.
    bool fileExists(const std::string& path) override;
    std::string homeDirectory() override;
    Date currentDate() override;
    double monotonicSeconds() override;

protected:
    // What one window tells of the program behind it.
    struct OwnedWindow {
        std::string instance;       // X11 WM_CLASS instance; KWin's resource name
        std::string className;      // X11 WM_CLASS class; KWin's resource class
        std::string applicationId;  // the GTK application id, or the Wayland app id
        bool desktopPart = false;   // the desktop's own background, a panel or a dock
    };

    // The processes that own managed windows, each once, in the desktop's order.
    virtual std::vector<std::int32_t> windowOwners() = 0;
    // The windows the process owns, in the desktop's order.
    virtual std::vector<OwnedWindow> windowsOwnedBy(std::int32_t pid) = 0;
    // The process owning the active window.
    virtual std::optional<std::int32_t> activeOwner() = 0;
    // Where "opening documents is not supported …" says it is.
    virtual std::string desktopKind() const = 0;

    static App makeApp(std::int32_t pid);
    static std::int32_t pidOf(const App& app);

private:
    struct Identity {
        std::optional<DesktopEntries::Entry> entry;
        std::string className;
        size_t windows = 0;
        size_t desktopParts = 0;
    };

    Identity identify(std::int32_t pid);

    // Read again only when the application folders change: the tray runs
    // while programs are installed and removed.
    DesktopEntries::Catalog entries_;
};

}  // namespace tarnwick
