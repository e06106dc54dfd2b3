// SimDesktop: a simulated desktop behind the platform seam, in virtual time.
#pragma once

#include "platform/platform.h"
#include "scripting/runner.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tarnwick::testing {

// One window as the simulator keeps it. The defaults make an ordinary,
// readable standard window.
struct SimWindow {
    std::optional<std::string> subrole = "AXStandardWindow";
    std::optional<std::string> title;
    std::optional<std::string> document;  // a URL string, as "AXDocument" reads
    Frame frame{100, 100, 800, 600};
    bool minimized = false;
    bool fullScreen = false;
    // In the application's own "AXWindows" list (windows on other Spaces are not).
    bool listed = true;
    // Reached by the remote-token lookup under these element ids (one is given
    // when none are set), or not at all.
    std::vector<std::uint64_t> tokenIds;
    bool reachableByToken = true;
    // For windows an application shows when launched: seconds after the launch.
    double appearsAfter = 0;
    // Attributes whose reads fail, and attributes that read as another value.
    std::set<std::string> unreadable;
    std::map<std::string, AttrValue> overrides;

    // What the application's scripting shows of the window.
    std::vector<std::string> tabs;  // browsers: tab URLs; iTerm: each tab's directory ("" when unknown)
    std::int64_t activeTab = 1;     // browsers: counted from 1
    bool incognito = false;         // Chromium's "mode" is "incognito"
    std::optional<std::string> folder;          // Finder: the target's POSIX path
    std::optional<std::string> tty;             // Terminal: the selected tab's device, "/dev/ttys003"
    std::optional<std::string> shellDirectory;  // Terminal: its shell's directory; nothing: no shell found
};

// How the application answers scripts.
enum class ScriptFault {
    none,
    refuse,  // Automation permission refused: every script fails
    hang,    // no answer: every script runs into its time-out
};

enum class LaunchFault {
    none,
    refuse,  // the launch answers at once with an error
    hang,    // the launch never answers
    // The process started hands its work to another instance and ends at once,
    // as many single-instance Linux programs do; that instance starts now too.
    handsOver,
};

// An installed application: what it is and how it behaves when launched.
struct SimAppSpec {
    std::optional<std::string> bundleID;
    std::string bundlePath;
    std::optional<std::string> name;
    ActivationPolicy policy = ActivationPolicy::regular;
    std::vector<SimWindow> windowsOnLaunch;
    double launchDelay = 0.5;     // until the launch hands back the application
    double finishedAfter = 1.0;   // until it reports that it finished launching
    double documentDelay = 0.5;   // until a window for an opened document appears
    LaunchFault fault = LaunchFault::none;
    bool refusesDocuments = false;
    ScriptFault scripts = ScriptFault::none;
    // What a request for a new window opens (its appearsAfter counted from the
    // request); nothing: the program offers no way to ask for one.
    std::optional<SimWindow> newWindow = std::nullopt;
};

// An ordinary application with the given identity and default behaviour.
SimAppSpec appSpec(std::optional<std::string> bundleID, std::string bundlePath, std::optional<std::string> name);

// A running (or quit) application.
struct SimApp {
    std::int32_t pid = 0;
    SimAppSpec spec;
    bool hidden = false;
    bool terminated = false;
    double finishedAt = 0;
    bool answersWindowList = true;  // false: its "AXWindows" read fails
    std::optional<AttrValue> windowListValue;  // "AXWindows" reads as this instead
    std::vector<std::uint64_t> windowIds;
};

// A write made through the seam, applied or not.
struct SimWrite {
    std::int32_t pid = 0;
    std::uint64_t windowId = 0;
    std::string attribute;
    AttrValue value;
};

// A messaging time-out set on an element (windowId 0: the application element).
struct SimTimeout {
    std::int32_t pid = 0;
    std::uint64_t windowId = 0;
    float seconds = 0;
};

// A script run the simulator answered: which script it took it for, and for whom.
struct SimScriptRun {
    std::string kind;      // "captureChromium", "restoreFinder", "closeBlank", "unknown"…
    std::string bundleID;  // the application addressed ("" when none could be read)
    std::string script;
};

// A stateful desktop: applications and their windows, installed bundles,
// files, a home folder and a clock. Once installed as the script host, it also
// answers the capture and restore scripts from its browsers, Finder and
// terminals, and the ps and lsof runs behind them. Writes change what later reads see;
// launches and opened documents take effect after virtual delays. The clock
// moves only when the code under test waits: a sleep, or the timed wait of a
// launch or a document open. Faults are switched on per app or window.
class SimDesktop final : public Platform, public Scripts::Host {
public:
    SimDesktop();

    // --- Building the desktop --------------------------------------------
    // Makes the bundle launchable: its path exists and its identifier resolves.
    void install(const SimAppSpec& spec);
    // Starts an application that has finished launching, with no windows yet.
    std::int32_t startApp(const SimAppSpec& spec);
    // Adds a window, visible at once unless `window.appearsAfter` says later; returns its id.
    std::uint64_t addWindow(std::int32_t pid, SimWindow window);
    void closeWindow(std::uint64_t windowId);
    // The application quits: it leaves the running list, its windows go.
    void quit(std::int32_t pid);
    void addFile(const std::string& path);
    void removeFile(const std::string& path);

    // --- Inspecting and faulting --------------------------------------------
    SimApp& app(std::int32_t pid);
    SimWindow& window(std::uint64_t windowId);
    // The ids of the application's windows that exist now, in creation order.
    std::vector<std::uint64_t> visibleWindows(std::int32_t pid);
    // The pid of the running application with this identifier, if any.
    std::optional<std::int32_t> pidOf(const std::string& bundleID);

    bool trusted = true;
    // Set: the desktop acts as X11 does, with a window manager of this name
    // and each running instance recorded on its own.
    std::optional<std::string> windowManager;
    std::optional<std::string> ownBundleID = "com.tarnwick.Tarnwick";
    std::optional<std::int32_t> frontmost;
    // Virtual seconds after which the desktop is gone for good (the X server
    // ended): desktopLost says so, and nothing else changes.
    std::optional<double> lostAt;
    std::string home = "/Users/tester";
    // The outputs (monitors) it says it has: none, as on a Mac, unless a test
    // gives some.
    std::vector<Output> screens;
    Date startDate;

    // How often each operation was called: "copyAttribute:AXWindows",
    // "elementForRemoteToken", "setAttribute:AXSize", "openApplication", "sleep"…
    int calls(const std::string& operation) const;
    std::vector<SimWrite> writes;
    std::vector<SimTimeout> timeouts;
    std::vector<RemoteToken> tokens;
    std::vector<double> sleeps;
    std::vector<std::int32_t> activations;
    std::vector<SimScriptRun> scriptRuns;
    // What was done, in order: "openApplication:PATH", "openDocuments:PATH",
    // "launch:PATH WORD… in FOLDER", "openNewWindow:PID",
    // "setAttribute:NAME:WINDOW", "hide:PID", "activate:PID", "sleep",
    // "appleScript:KIND:BUNDLE". Tests add their own entries beside them.
    std::vector<std::string> journal;
    // How many script runs of that kind were answered.
    int scriptRunsOf(const std::string& kind) const;

    // --- Platform --------------------------------------------------------------
    bool accessibilityTrusted() override;
    void promptForAccessibilityTrust() override;
    Element applicationElement(std::int32_t pid) override;
    void setMessagingTimeout(const Element& element, float seconds) override;
    std::optional<AttrValue> copyAttribute(const Element& element, const std::string& name) override;
    void setAttribute(const Element& element, const std::string& name, const AttrValue& value) override;
    Element elementForRemoteToken(const RemoteToken& token) override;
    bool sameElement(const Element& a, const Element& b) override;

    std::optional<std::string> ownBundleIdentifier() override;
    std::vector<App> runningApplications() override;
    std::vector<App> runningApplications(const std::string& bundleID) override;
    std::optional<App> frontmostApplication() override;
    AppInfo appInfo(const App& app) override;
    void hide(const App& app) override;
    void activate(const App& app) override;
    std::optional<std::string> applicationPath(const std::string& bundleID) override;
    std::optional<App> openApplication(const std::string& appPath, double timeout, ErrorSink onError) override;
    void openDocuments(const std::vector<std::string>& urls, const std::string& appPath, double timeout,
                       ErrorSink onError) override;

    std::vector<App> runningCommands(const std::vector<std::string>& commandLine) override;
    std::optional<App> launch(const LaunchRequest& request, double timeout, ErrorSink onError) override;
    bool separateInstances() override;
    bool opensRecordedApplications() override;
    // The simulated programs start by path; nothing stands between.
    std::optional<std::vector<std::string>> launchArguments(const std::string&) override { return std::nullopt; }
    bool openNewWindow(const App& app, ErrorSink onError) override;
    std::optional<std::string> windowManagerName() override;
    bool desktopLost() override;
    std::vector<Output> outputs() override { return screens; }

    bool fileExists(const std::string& path) override;
    std::string homeDirectory() override;

    Date currentDate() override;
    double monotonicSeconds() override;
    void sleep(double seconds) override;

    // --- Scripts ---------------------------------------------------------------
    Run appleScript(std::string_view script, double timeout) override;
    std::string tool(const std::string& path, const std::vector<std::string>& arguments) override;

    // Virtual seconds since the simulator was made.
    double now() const;
    // Time passes outside the code under test (a test's own waiting, the main
    // thread idling between timer ticks): the clock moves, nothing is recorded.
    void passTime(double seconds);

private:
    struct Live {
        SimWindow window;
        std::int32_t pid = 0;
        double appearsAt = 0;
        bool closed = false;
    };

    void count(const std::string& operation);
    std::int32_t launch(const SimAppSpec& spec, bool finished);
    std::uint64_t place(std::int32_t pid, SimWindow window, double appearsAt);
    Live* liveWindow(std::int32_t pid, std::uint64_t windowId);
    SimApp* runningApp(std::int32_t pid);
    App handleFor(std::int32_t pid) const;
    // The wait of a launch or an open: the clock moves by the answer's delay, or
    // by the whole time-out when the answer comes later than that.
    bool waitForAnswer(double delay, double timeout);

    // Scripts (sim_scripts.cpp).
    std::optional<std::int32_t> scriptTarget(const std::string& bundleID);
    std::vector<std::uint64_t> frontToBack(std::int32_t pid);
    std::string listing(std::int32_t pid, const std::string& kind);
    Run interpret(std::string_view script, std::string& kind, std::string& bundleID);
    std::uint64_t openScriptedWindow(std::int32_t pid, SimWindow window);
    std::int64_t nextTty_ = 1;

    mutable std::recursive_mutex lock_;
    double now_ = 0;
    std::int32_t nextPid_ = 501;
    std::uint64_t nextWindowId_ = 1;
    std::map<std::int32_t, SimApp> apps_;
    std::vector<std::int32_t> launchOrder_;
    std::map<std::uint64_t, Live> windows_;
    std::vector<SimAppSpec> installed_;
    std::set<std::string> files_;
    std::map<std::string, int> calls_;
};

// Makes the desktop answer every script and tool run for the life of the object.
class ScopedScripts {
public:
    explicit ScopedScripts(Scripts::Host& host);
    ~ScopedScripts();
    ScopedScripts(const ScopedScripts&) = delete;
    ScopedScripts& operator=(const ScopedScripts&) = delete;
};

// Installs a desktop for the life of the object and puts the previous one back.
class ScopedPlatform {
public:
    explicit ScopedPlatform(Platform& backend);
    ~ScopedPlatform();
    ScopedPlatform(const ScopedPlatform&) = delete;
    ScopedPlatform& operator=(const ScopedPlatform&) = delete;

private:
    Platform* previous_;
};

}  // namespace tarnwick::testing
