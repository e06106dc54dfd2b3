// SimDesktop: applications, windows, files and a virtual clock behind the seam.
#include "support/sim_desktop.h"

#include "model/invariant.h"

#include <algorithm>
#include <cctype>
#include <chrono>

namespace tarnwick::testing {

namespace {

// What a simulated element handle points at; windowId 0 is the application.
struct ElementRef {
    std::int32_t pid = 0;
    std::uint64_t windowId = 0;
};

struct AppRef {
    std::int32_t pid = 0;
};

const ElementRef& refOf(const Element& element) { return *static_cast<const ElementRef*>(element.get()); }

std::int32_t pidOfApp(const App& app) { return static_cast<const AppRef*>(app.get())->pid; }

Element makeElement(std::int32_t pid, std::uint64_t windowId) {
    return Element(std::make_shared<const ElementRef>(ElementRef{pid, windowId}));
}

std::uint64_t readLittleEndian(const RemoteToken& token, size_t offset, size_t width) {
    std::uint64_t value = 0;
    for (size_t i = 0; i < width; ++i) value |= std::uint64_t{token[offset + i]} << (8 * i);
    return value;
}

// The last path component of a URL or path, as a window title.
std::string lastComponent(const std::string& text) {
    auto slash = text.find_last_of('/');
    return slash == std::string::npos ? text : text.substr(slash + 1);
}

// A file name as an application shows it: "plan%20b.key" → "plan b.key".
std::string percentDecoded(const std::string& text) {
    std::string decoded;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
            decoded += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

}  // namespace

SimAppSpec appSpec(std::optional<std::string> bundleID, std::string bundlePath, std::optional<std::string> name) {
    SimAppSpec spec;
    spec.bundleID = std::move(bundleID);
    spec.bundlePath = std::move(bundlePath);
    spec.name = std::move(name);
    return spec;
}

SimDesktop::SimDesktop()
    : startDate(std::chrono::sys_days{std::chrono::year{2026} / 1 / 5} + std::chrono::hours{10}) {}

// --- Building -------------------------------------------------------------------

void SimDesktop::install(const SimAppSpec& spec) {
    std::lock_guard guard(lock_);
    installed_.push_back(spec);
    files_.insert(spec.bundlePath);
}

std::int32_t SimDesktop::startApp(const SimAppSpec& spec) {
    std::lock_guard guard(lock_);
    SimAppSpec bare = spec;
    bare.windowsOnLaunch.clear();
    return launch(bare, true);
}

std::uint64_t SimDesktop::addWindow(std::int32_t pid, SimWindow window) {
    std::lock_guard guard(lock_);
    double appearsAt = now_ + window.appearsAfter;
    return place(pid, std::move(window), appearsAt);
}

void SimDesktop::closeWindow(std::uint64_t windowId) {
    std::lock_guard guard(lock_);
    auto found = windows_.find(windowId);
    if (found == windows_.end()) invariantFailed("the simulator has no such window");
    found->second.closed = true;
}

void SimDesktop::quit(std::int32_t pid) {
    std::lock_guard guard(lock_);
    SimApp& quitting = app(pid);
    quitting.terminated = true;
    for (auto id : quitting.windowIds) windows_.at(id).closed = true;
    if (frontmost == pid) frontmost.reset();
}

void SimDesktop::addFile(const std::string& path) {
    std::lock_guard guard(lock_);
    files_.insert(path);
}

void SimDesktop::removeFile(const std::string& path) {
    std::lock_guard guard(lock_);
    files_.erase(path);
}

SimApp& SimDesktop::app(std::int32_t pid) {
    std::lock_guard guard(lock_);
    auto found = apps_.find(pid);
    if (found == apps_.end()) invariantFailed("the simulator has no such application");
    return found->second;
}

SimWindow& SimDesktop::window(std::uint64_t windowId) {
    std::lock_guard guard(lock_);
    auto found = windows_.find(windowId);
    if (found == windows_.end()) invariantFailed("the simulator has no such window");
    return found->second.window;
}

std::vector<std::uint64_t> SimDesktop::visibleWindows(std::int32_t pid) {
    std::lock_guard guard(lock_);
    std::vector<std::uint64_t> ids;
    for (auto id : app(pid).windowIds)
        if (liveWindow(pid, id) != nullptr) ids.push_back(id);
    return ids;
}

std::optional<std::int32_t> SimDesktop::pidOf(const std::string& bundleID) {
    std::lock_guard guard(lock_);
    for (auto pid : launchOrder_) {
        const SimApp& candidate = apps_.at(pid);
        if (!candidate.terminated && candidate.spec.bundleID == bundleID) return pid;
    }
    return std::nullopt;
}

int SimDesktop::calls(const std::string& operation) const {
    std::lock_guard guard(lock_);
    auto found = calls_.find(operation);
    return found == calls_.end() ? 0 : found->second;
}

// --- Internals ---------------------------------------------------------------

void SimDesktop::count(const std::string& operation) { ++calls_[operation]; }

std::int32_t SimDesktop::launch(const SimAppSpec& spec, bool finished) {
    std::int32_t pid = nextPid_++;
    SimApp& started = apps_[pid];
    started.pid = pid;
    started.spec = spec;
    started.finishedAt = finished ? now_ : now_ + spec.finishedAfter;
    launchOrder_.push_back(pid);
    for (const SimWindow& shown : spec.windowsOnLaunch) place(pid, shown, now_ + shown.appearsAfter);
    return pid;
}

std::uint64_t SimDesktop::place(std::int32_t pid, SimWindow window, double appearsAt) {
    SimApp& owner = app(pid);
    if (window.tokenIds.empty()) {
        // Real element ids are small numbers handed out per application.
        window.tokenIds.push_back(40 + owner.windowIds.size() * 7);
    }
    std::uint64_t id = nextWindowId_++;
    windows_[id] = Live{std::move(window), pid, appearsAt, false};
    owner.windowIds.push_back(id);
    return id;
}

SimApp* SimDesktop::runningApp(std::int32_t pid) {
    auto found = apps_.find(pid);
    if (found == apps_.end() || found->second.terminated) return nullptr;
    return &found->second;
}

SimDesktop::Live* SimDesktop::liveWindow(std::int32_t pid, std::uint64_t windowId) {
    auto found = windows_.find(windowId);
    if (found == windows_.end()) return nullptr;
    Live& live = found->second;
    if (live.pid != pid || live.closed || live.appearsAt > now_ || runningApp(pid) == nullptr) return nullptr;
    return &live;
}

App SimDesktop::handleFor(std::int32_t pid) const { return App(std::make_shared<const AppRef>(AppRef{pid})); }

bool SimDesktop::waitForAnswer(double delay, double timeout) {
    if (delay <= timeout) {
        now_ += delay;
        return true;
    }
    now_ += timeout;
    return false;
}

// --- Window access ---------------------------------------------------------------

bool SimDesktop::accessibilityTrusted() {
    std::lock_guard guard(lock_);
    count("accessibilityTrusted");
    return trusted;
}

void SimDesktop::promptForAccessibilityTrust() {
    std::lock_guard guard(lock_);
    count("promptForAccessibilityTrust");
}

Element SimDesktop::applicationElement(std::int32_t pid) {
    std::lock_guard guard(lock_);
    count("applicationElement");
    // Like the real call, this makes an element for any pid; reads then fail.
    return makeElement(pid, 0);
}

void SimDesktop::setMessagingTimeout(const Element& element, float seconds) {
    std::lock_guard guard(lock_);
    count("setMessagingTimeout");
    timeouts.push_back({refOf(element).pid, refOf(element).windowId, seconds});
}

std::optional<AttrValue> SimDesktop::copyAttribute(const Element& element, const std::string& name) {
    std::lock_guard guard(lock_);
    count("copyAttribute:" + name);
    if (!trusted) return std::nullopt;
    const ElementRef& ref = refOf(element);

    if (ref.windowId == 0) {
        SimApp* owner = runningApp(ref.pid);
        if (owner == nullptr || name != "AXWindows" || !owner->answersWindowList) return std::nullopt;
        if (owner->windowListValue) return owner->windowListValue;
        std::vector<Element> listed;
        for (auto id : owner->windowIds)
            if (Live* live = liveWindow(ref.pid, id); live && live->window.listed)
                listed.push_back(makeElement(ref.pid, id));
        return listed;
    }

    Live* live = liveWindow(ref.pid, ref.windowId);
    if (live == nullptr) return std::nullopt;
    const SimWindow& shown = live->window;
    if (shown.unreadable.count(name)) return std::nullopt;
    if (auto found = shown.overrides.find(name); found != shown.overrides.end()) return found->second;
    auto text = [](const std::optional<std::string>& value) -> std::optional<AttrValue> {
        if (!value) return std::nullopt;
        return *value;
    };
    if (name == "AXRole") return std::string("AXWindow");
    if (name == "AXSubrole") return text(shown.subrole);
    if (name == "AXTitle") return text(shown.title);
    if (name == "AXDocument") return text(shown.document);
    if (name == "AXPosition") return Point{shown.frame.x, shown.frame.y};
    if (name == "AXSize") return Size{shown.frame.w, shown.frame.h};
    if (name == "AXMinimized") return shown.minimized;
    if (name == "AXFullScreen") return shown.fullScreen;
    return std::nullopt;
}

void SimDesktop::setAttribute(const Element& element, const std::string& name, const AttrValue& value) {
    std::lock_guard guard(lock_);
    count("setAttribute:" + name);
    const ElementRef& ref = refOf(element);
    journal.push_back("setAttribute:" + name + ":" + std::to_string(ref.windowId));
    writes.push_back({ref.pid, ref.windowId, name, value});
    if (!trusted) return;
    Live* live = liveWindow(ref.pid, ref.windowId);
    if (live == nullptr || live->window.unreadable.count(name)) return;
    SimWindow& shown = live->window;
    if (name == "AXPosition" && std::holds_alternative<Point>(value)) {
        shown.frame.x = std::get<Point>(value).x;
        shown.frame.y = std::get<Point>(value).y;
    } else if (name == "AXSize" && std::holds_alternative<Size>(value)) {
        shown.frame.w = std::get<Size>(value).width;
        shown.frame.h = std::get<Size>(value).height;
    } else if (name == "AXMinimized" && std::holds_alternative<bool>(value)) {
        shown.minimized = std::get<bool>(value);
    } else if (name == "AXFullScreen" && std::holds_alternative<bool>(value)) {
        shown.fullScreen = std::get<bool>(value);
    }
}

Element SimDesktop::elementForRemoteToken(const RemoteToken& token) {
    std::lock_guard guard(lock_);
    count("elementForRemoteToken");
    tokens.push_back(token);
    if (readLittleEndian(token, 4, 4) != 0 || readLittleEndian(token, 8, 4) != 0x636F636F) return Element();
    auto pid = static_cast<std::int32_t>(static_cast<std::uint32_t>(readLittleEndian(token, 0, 4)));
    std::uint64_t elementId = readLittleEndian(token, 12, 8);
    SimApp* owner = runningApp(pid);
    if (owner == nullptr) return Element();
    for (auto id : owner->windowIds)
        if (Live* live = liveWindow(pid, id); live && live->window.reachableByToken) {
            const auto& ids = live->window.tokenIds;
            if (std::find(ids.begin(), ids.end(), elementId) != ids.end()) return makeElement(pid, id);
        }
    return Element();
}

bool SimDesktop::sameElement(const Element& a, const Element& b) {
    std::lock_guard guard(lock_);
    count("sameElement");
    return refOf(a).pid == refOf(b).pid && refOf(a).windowId == refOf(b).windowId;
}

// --- Applications ---------------------------------------------------------------

std::optional<std::string> SimDesktop::ownBundleIdentifier() {
    std::lock_guard guard(lock_);
    return ownBundleID;
}

std::vector<App> SimDesktop::runningApplications() {
    std::lock_guard guard(lock_);
    count("runningApplications");
    std::vector<App> running;
    for (auto pid : launchOrder_)
        if (runningApp(pid)) running.push_back(handleFor(pid));
    return running;
}

std::vector<App> SimDesktop::runningApplications(const std::string& bundleID) {
    std::lock_guard guard(lock_);
    count("runningApplicationsWithBundleIdentifier");
    std::vector<App> running;
    for (auto pid : launchOrder_)
        if (SimApp* candidate = runningApp(pid); candidate && candidate->spec.bundleID == bundleID)
            running.push_back(handleFor(pid));
    return running;
}

std::optional<App> SimDesktop::frontmostApplication() {
    std::lock_guard guard(lock_);
    if (!frontmost || runningApp(*frontmost) == nullptr) return std::nullopt;
    return handleFor(*frontmost);
}

AppInfo SimDesktop::appInfo(const App& handle) {
    std::lock_guard guard(lock_);
    const SimApp& known = app(pidOfApp(handle));
    return AppInfo{known.pid,          known.spec.policy, known.spec.bundleID,        known.spec.bundlePath,
                   known.spec.name,    known.hidden,      known.terminated,           known.finishedAt <= now_};
}

void SimDesktop::hide(const App& handle) {
    std::lock_guard guard(lock_);
    count("hide");
    journal.push_back("hide:" + std::to_string(pidOfApp(handle)));
    if (SimApp* running = runningApp(pidOfApp(handle))) running->hidden = true;
}

void SimDesktop::activate(const App& handle) {
    std::lock_guard guard(lock_);
    count("activate");
    journal.push_back("activate:" + std::to_string(pidOfApp(handle)));
    std::int32_t pid = pidOfApp(handle);
    activations.push_back(pid);
    if (SimApp* running = runningApp(pid)) {
        running->hidden = false;
        frontmost = pid;
    }
}

std::optional<std::string> SimDesktop::applicationPath(const std::string& bundleID) {
    std::lock_guard guard(lock_);
    count("applicationPath");
    for (const SimAppSpec& spec : installed_)
        if (spec.bundleID == bundleID && files_.count(spec.bundlePath)) return spec.bundlePath;
    return std::nullopt;
}

std::optional<App> SimDesktop::openApplication(const std::string& appPath, double timeout, ErrorSink onError) {
    std::lock_guard guard(lock_);
    count("openApplication");
    journal.push_back("openApplication:" + appPath);
    // An application that runs already is handed back as it is; where each
    // instance counts (X11) a launch starts another.
    if (!windowManager)
        for (auto pid : launchOrder_)
            if (SimApp* running = runningApp(pid); running && running->spec.bundlePath == appPath)
                return handleFor(pid);
    const SimAppSpec* spec = nullptr;
    for (const SimAppSpec& candidate : installed_)
        if (candidate.bundlePath == appPath && files_.count(appPath)) spec = &candidate;
    if (spec == nullptr) {
        if (onError) onError("The application \"" + lastComponent(appPath) + "\" could not be found.");
        return std::nullopt;
    }
    if (spec->fault == LaunchFault::refuse) {
        if (onError) onError("The application \"" + lastComponent(appPath) + "\" could not be launched.");
        return std::nullopt;
    }
    if (spec->fault == LaunchFault::hang) {
        waitForAnswer(timeout, timeout);
        return std::nullopt;
    }
    // The process starts now; whether its answer arrives in time is the wait's business.
    std::int32_t pid = launch(*spec, false);
    if (spec->fault == LaunchFault::handsOver) {
        launch(*spec, false);
        app(pid).terminated = true;
    }
    if (!waitForAnswer(spec->launchDelay, timeout)) return std::nullopt;
    return handleFor(pid);
}

// Programs here are known by their bundles only: no command line finds one.
std::vector<App> SimDesktop::runningCommands(const std::vector<std::string>&) {
    std::lock_guard guard(lock_);
    count("runningCommands");
    return {};
}

// Noted with its words and folder, then started by its path as openApplication starts it.
std::optional<App> SimDesktop::launch(const LaunchRequest& request, double timeout, ErrorSink onError) {
    {
        std::lock_guard guard(lock_);
        count("launch");
        std::string entry = "launch:" + request.path;
        if (request.commandLine)
            for (const std::string& word : *request.commandLine) entry += " " + word;
        if (request.workingDirectory) entry += " in " + *request.workingDirectory;
        journal.push_back(entry);
    }
    return openApplication(request.path, timeout, std::move(onError));
}

bool SimDesktop::separateInstances() { return windowManager.has_value(); }

// As on the systems it stands for: a Mac opens recorded bundles, X11 does not.
bool SimDesktop::opensRecordedApplications() { return !windowManager.has_value(); }

bool SimDesktop::openNewWindow(const App& app, ErrorSink) {
    std::lock_guard guard(lock_);
    count("openNewWindow");
    std::int32_t pid = pidOfApp(app);
    journal.push_back("openNewWindow:" + std::to_string(pid));
    SimApp* running = runningApp(pid);
    if (running == nullptr || !running->spec.newWindow) return false;
    SimWindow window = *running->spec.newWindow;
    double appearsAt = now_ + window.appearsAfter;
    place(pid, std::move(window), appearsAt);
    return true;
}

std::optional<std::string> SimDesktop::windowManagerName() { return windowManager; }

bool SimDesktop::desktopLost() {
    std::lock_guard guard(lock_);
    return lostAt && now_ >= *lostAt;
}

void SimDesktop::openDocuments(const std::vector<std::string>& urls, const std::string& appPath, double timeout,
                               ErrorSink onError) {
    std::lock_guard guard(lock_);
    count("openDocuments");
    journal.push_back("openDocuments:" + appPath);
    std::optional<std::int32_t> target;
    for (auto pid : launchOrder_)
        if (SimApp* running = runningApp(pid); running && running->spec.bundlePath == appPath) target = pid;
    if (!target) {
        if (onError) onError("The application \"" + lastComponent(appPath) + "\" is not running.");
        return;
    }
    const SimAppSpec& spec = app(*target).spec;
    if (spec.refusesDocuments) {
        if (onError) onError("The documents could not be opened.");
        return;
    }
    for (const std::string& url : urls) {
        SimWindow opened;
        opened.title = percentDecoded(lastComponent(url));
        opened.document = url;
        place(*target, opened, now_ + spec.documentDelay);
    }
    waitForAnswer(0.1, timeout);
}

// --- Files, home, time ------------------------------------------------------------

bool SimDesktop::fileExists(const std::string& path) {
    std::lock_guard guard(lock_);
    count("fileExists");
    // A folder answers with or without its trailing slash, as on a real disk.
    std::string bare = path;
    while (bare.size() > 1 && bare.back() == '/') bare.pop_back();
    return files_.count(path) > 0 || files_.count(bare) > 0;
}

std::string SimDesktop::homeDirectory() {
    std::lock_guard guard(lock_);
    return home;
}

Date SimDesktop::currentDate() {
    std::lock_guard guard(lock_);
    return startDate + std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(now_));
}

double SimDesktop::monotonicSeconds() {
    std::lock_guard guard(lock_);
    return now_;
}

double SimDesktop::now() const {
    std::lock_guard guard(lock_);
    return now_;
}

void SimDesktop::passTime(double seconds) {
    std::lock_guard guard(lock_);
    if (seconds > 0) now_ += seconds;
}

void SimDesktop::sleep(double seconds) {
    std::lock_guard guard(lock_);
    count("sleep");
    journal.push_back("sleep");
    sleeps.push_back(seconds);
    if (seconds > 0) now_ += seconds;
}

// --- Installation -------------------------------------------------------------------

ScopedPlatform::ScopedPlatform(Platform& backend) : previous_(installPlatform(&backend)) {}

ScopedPlatform::~ScopedPlatform() { installPlatform(previous_); }

}  // namespace tarnwick::testing
