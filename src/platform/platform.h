// The platform seam: the one interface through which Tarnwick reaches the desktop.
#pragma once

#include "model/snapshot.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace tarnwick {

// An opaque reference to something a backend owns: a UI element, a running
// application. Copies share it; the backend's deleter releases it (CFRelease on
// macOS). An empty handle stands for "none".
template <class Tag>
class Handle {
public:
    Handle() = default;
    explicit Handle(std::shared_ptr<const void> ref) : ref_(std::move(ref)) {}

    const void* get() const { return ref_.get(); }
    explicit operator bool() const { return ref_ != nullptr; }
    // The same reference. Two references may still name one element: ask the
    // platform's sameElement for that.
    bool operator==(const Handle&) const = default;

private:
    std::shared_ptr<const void> ref_;
};

// Window states that only a window manager keeps (X11 managers following
// EWMH, Wayland compositors), named like the Accessibility ones: the workspace
// (an integer, -1 for all) and maximized per axis.
inline constexpr const char* workspaceAttribute = "TWWorkspace";
inline constexpr const char* maximizedHorizontallyAttribute = "TWMaximizedHorizontally";
inline constexpr const char* maximizedVerticallyAttribute = "TWMaximizedVertically";
// Both axes in one request, as pagers ask: some managers ignore two one-axis
// requests in a row. Written only.
inline constexpr const char* maximizedAttribute = "TWMaximized";
// The output (monitor) a window is on, by the name the system gives it. Read only.
inline constexpr const char* outputAttribute = "TWOutput";
// The highest workspace index written; a window manager with more workspaces
// than this does not exist, so a larger number in a snapshot counts as none.
inline constexpr std::int64_t lastWorkspace = 0xFFFF;

// A window or an application as the window-access half sees it.
using Element = Handle<struct ElementTag>;
// A running application as the applications half sees it.
using App = Handle<struct AppTag>;

struct Point {
    double x = 0;
    double y = 0;
    bool operator==(const Point&) const = default;
};

struct Size {
    double width = 0;
    double height = 0;
    bool operator==(const Size&) const = default;
};

// A value of a type Tarnwick never reads (a number, a URL object, an array
// that holds something other than elements…). Reading it is not a failure,
// but it matches no expected type.
struct OtherValue {
    bool operator==(const OtherValue&) const = default;
};

// An attribute's value, typed by the backend.
using AttrValue = std::variant<std::string, bool, Point, Size, std::vector<Element>, OtherValue, std::int64_t>;

// The 20 bytes that name one element of an application to the private
// remote-token lookup.
using RemoteToken = std::array<std::uint8_t, 20>;

enum class ActivationPolicy { regular, accessory, prohibited };

// What a running application says of itself at the moment it is asked.
struct AppInfo {
    std::int32_t pid = 0;
    ActivationPolicy policy = ActivationPolicy::regular;
    std::optional<std::string> bundleID;
    std::optional<std::string> bundlePath;  // file-system path of the bundle
    std::optional<std::string> name;        // localized name
    bool hidden = false;
    bool terminated = false;
    bool finishedLaunching = false;
    // Linux: the command line of a program no desktop entry names, and the
    // folder the shell of a terminal is in. Never set on a Mac.
    std::optional<std::vector<std::string>> commandLine = std::nullopt;
    std::optional<std::string> workingDirectory = std::nullopt;
};

// A start by command line, where the system can (Linux): the program's path
// (a desktop entry or an executable), the words to start it with instead of
// the entry's, and the folder to start it in.
struct LaunchRequest {
    std::string path;
    std::optional<std::vector<std::string>> commandLine;
    std::optional<std::string> workingDirectory;
};

// Receives the description of an error that a launch or an open reports. It may
// be called on another thread, and after the call that started the work has
// returned, so it must own everything it uses.
using ErrorSink = std::function<void(const std::string& description)>;

// One output (monitor) of the desktop: the name the system gives it ("DP-1")
// and where it sits, in the coordinates of window frames.
struct Output {
    std::string name;
    Frame frame;

    bool operator==(const Output&) const = default;
};

// The output that holds the largest part of the frame; nothing when none holds any of it.
std::optional<std::string> outputHolding(const Frame& frame, const std::vector<Output>& outputs);

// One table of desktop operations, filled once per backend: macOS, the
// simulated desktop of the tests, and later X11. Nothing above it calls the
// operating system for windows, applications, files or time.
class Platform {
public:
    virtual ~Platform() = default;

    // Window access: elements and their attributes. Every failure is an empty
    // handle, an absent value or a silently dropped write.
    virtual bool accessibilityTrusted() = 0;
    virtual void promptForAccessibilityTrust() = 0;
    virtual Element applicationElement(std::int32_t pid) = 0;
    virtual void setMessagingTimeout(const Element& element, float seconds) = 0;
    virtual std::optional<AttrValue> copyAttribute(const Element& element, const std::string& name) = 0;
    virtual void setAttribute(const Element& element, const std::string& name, const AttrValue& value) = 0;
    // The element that answers to the token, or an empty handle.
    virtual Element elementForRemoteToken(const RemoteToken& token) = 0;
    virtual bool sameElement(const Element& a, const Element& b) = 0;

    // Running applications.
    virtual std::optional<std::string> ownBundleIdentifier() = 0;
    virtual std::vector<App> runningApplications() = 0;
    virtual std::vector<App> runningApplications(const std::string& bundleID) = 0;
    virtual std::optional<App> frontmostApplication() = 0;
    virtual AppInfo appInfo(const App& app) = 0;
    virtual void hide(const App& app) = 0;
    // Brings the application forward, with no activation options.
    virtual void activate(const App& app) = 0;
    // Where the application with this identifier is installed, if anywhere.
    virtual std::optional<std::string> applicationPath(const std::string& bundleID) = 0;
    // Launches the bundle at appPath without activating it and waits at most
    // `timeout` seconds for the launch to hand back the running application.
    virtual std::optional<App> openApplication(const std::string& appPath, double timeout,
                                               ErrorSink onError) = 0;
    // Opens the document URLs with the application at appPath, without
    // activating it, and waits at most `timeout` seconds for the open to answer.
    virtual void openDocuments(const std::vector<std::string>& urls, const std::string& appPath,
                               double timeout, ErrorSink onError) = 0;

    // Linux. Running programs that no desktop entry names, started with
    // exactly this command line; none elsewhere.
    virtual std::vector<App> runningCommands(const std::vector<std::string>& commandLine) = 0;
    // Starts what the request names, as openApplication does; where the system
    // cannot start by command line, an error to the sink and nothing.
    virtual std::optional<App> launch(const LaunchRequest& request, double timeout, ErrorSink onError) = 0;
    // What launching the file at `path` would run, word by word, where the
    // system can tell beforehand (Linux: a desktop entry's command); nothing
    // where it cannot (a Mac opens a bundle).
    virtual std::optional<std::vector<std::string>> launchArguments(const std::string& path) = 0;
    // Whether each running instance of a program stands for its own recorded
    // application (X11, where many programs run one process per window), so
    // that a restore gives each record an instance of its own. On a Mac the
    // first instance stands for them all.
    virtual bool separateInstances() = 0;
    // Whether a launch may open the application file a snapshot records: on a
    // Mac the system checks every bundle it opens. Where nothing checks (Linux),
    // programs are started through desktop entries found by identifier, and a
    // recorded command line or executable file only from a trusted snapshot.
    virtual bool opensRecordedApplications() = 0;
    // Asks a running application for one more window, the way its desktop
    // entry offers one (a "new-window" action). False where it offers no way,
    // or the request could not be started (the reason to the sink); on a Mac
    // always false.
    virtual bool openNewWindow(const App& app, ErrorSink onError) = 0;
    // The window manager that keeps the windows' states (X11: its name, "none"
    // when no manager following EWMH answers); then windows also have a
    // workspace and a maximized state. Nothing on a Mac.
    virtual std::optional<std::string> windowManagerName() = 0;
    // Whether the desktop went away under us (X11: the connection to the
    // display broke, as when the X server ends). Nothing can be read or placed
    // after that, so a restore or a capture stops. Never on a Mac.
    virtual bool desktopLost() = 0;

    // The outputs (monitors) as they are now, in the system's order; empty
    // where the system does not tell (a Mac), and then frames are written as
    // they were recorded.
    virtual std::vector<Output> outputs() = 0;

    // Files and the user.
    virtual bool fileExists(const std::string& path) = 0;
    virtual std::string homeDirectory() = 0;

    // Time: the wall clock, a monotonic clock in seconds, and sleeping.
    virtual Date currentDate() = 0;
    virtual double monotonicSeconds() = 0;
    virtual void sleep(double seconds) = 0;
};

// Installs the backend every later call goes to (nullptr removes it) and
// returns the one it replaces. Called once at start-up by the program, and by
// tests around each case; the caller keeps the backend alive while installed.
Platform* installPlatform(Platform* backend);

// The installed backend. Stops the process when none is installed.
Platform& platform();

// Where a backend notes what went wrong that no caller hears of (a batch of
// window changes the compositor refused): the program's log, once the program
// sets it; until then such notes are dropped. The text is written as given,
// so a backend makes outside text printable first.
void setPlatformLog(std::function<void(const std::string& line)> sink);
void platformLog(const std::string& line);

}  // namespace tarnwick
