// The KWin backend: windows listed and placed by KWin scripts, one script per
// capture and one per placing pass; applications are the processes that own
// the windows, named and relaunched through their desktop entries.
#include "platform/kwin/kwin_platform.h"

#include "model/printable.h"

#include "platform/kwin/kwin_bus.h"
#include "platform/kwin/kwin_scripts.h"
#include "session/desktop_entry.h"
#include "session/launch.h"
#include "session/process.h"
#include "store/data_folder.h"
#include "store/log.h"

#include <xcb/res.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <cmath>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <strings.h>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace tarnwick {

namespace {

// The window manager's states, by the names the seam's users write and read
// (they are the X11 backend's too).
constexpr const char* workspaceAttribute = "TWWorkspace";
constexpr const char* maximizedHorizontallyAttribute = "TWMaximizedHorizontally";
constexpr const char* maximizedVerticallyAttribute = "TWMaximizedVertically";
constexpr const char* maximizedAttribute = "TWMaximized";

// How long one listing stands for the desktop: a capture asks a dozen
// questions of every window within it. Our own changes end it at once.
constexpr auto listingLifetime = std::chrono::milliseconds(50);
// Changes wait this long for more before they go out on their own, so that
// none is left waiting when nothing reads after them.
constexpr auto changeGrace = std::chrono::milliseconds(30);
// A script that has not answered by then is not going to.
constexpr auto scriptTimeout = std::chrono::milliseconds(3000);

// What an element stands for: a window (by KWin's id), or, with no id, the
// process that owns windows, as the application element.
struct Target {
    std::int32_t pid = 0;
    std::string window;
};

const Target* targetOf(const Element& element) { return static_cast<const Target*>(element.get()); }

Element makeElement(std::int32_t pid, std::string window) {
    return Element(std::make_shared<const Target>(Target{pid, std::move(window)}));
}

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

// HACK: KWin knows no pid for an XWayland client that never sets _NET_WM_PID
// (classic Xt programs such as xlogo); the X server knows the process of
// every local client, and XWayland answers the X-Resource question.
class XWaylandPids {
public:
    ~XWaylandPids() {
        if (connection_ != nullptr) xcb_disconnect(connection_);
    }

    std::optional<std::int32_t> pidOf(std::uint32_t window) {
        if (!connect()) return std::nullopt;
        xcb_res_client_id_spec_t spec{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
        auto* reply = xcb_res_query_client_ids_reply(connection_, xcb_res_query_client_ids(connection_, 1, &spec),
                                                     nullptr);
        if (reply == nullptr) return std::nullopt;
        std::optional<std::int32_t> pid;
        for (auto it = xcb_res_query_client_ids_ids_iterator(reply); it.rem > 0 && !pid;
             xcb_res_client_id_value_next(&it))
            if ((it.data->spec.mask & XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID) &&
                xcb_res_client_id_value_value_length(it.data) >= 1)
                pid = static_cast<std::int32_t>(*xcb_res_client_id_value_value(it.data));
        std::free(reply);
        return pid;
    }

    // HACK: KWin 6 no longer tells a script an XWayland window's X11 id. The
    // window KWin lists for X11 clients with this class whose client area is
    // at this place stands for it; when there is not exactly one, none.
    std::optional<std::uint32_t> windowAt(const std::string& resourceClass, double x, double y, double width,
                                          double height) {
        if (!connect() || resourceClass.empty()) return std::nullopt;
        xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
        const char name[] = "_NET_CLIENT_LIST";
        auto* atom =
            xcb_intern_atom_reply(connection_, xcb_intern_atom(connection_, 1, sizeof name - 1, name), nullptr);
        if (atom == nullptr) return std::nullopt;
        xcb_atom_t clientList = atom->atom;
        std::free(atom);
        auto* listed = xcb_get_property_reply(
            connection_, xcb_get_property(connection_, 0, root, clientList, XCB_ATOM_WINDOW, 0, 4096), nullptr);
        if (listed == nullptr) return std::nullopt;
        std::vector<xcb_window_t> windows;
        if (listed->format == 32) {
            auto* first = static_cast<xcb_window_t*>(xcb_get_property_value(listed));
            windows.assign(first, first + xcb_get_property_value_length(listed) / 4);
        }
        std::free(listed);
        auto near = [](double a, int b) { return std::abs(a - b) <= 1; };
        std::optional<std::uint32_t> found;
        for (xcb_window_t window : windows) {
            auto* classed = xcb_get_property_reply(
                connection_, xcb_get_property(connection_, 0, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, 256),
                nullptr);
            auto* shape = xcb_get_geometry_reply(connection_, xcb_get_geometry(connection_, window), nullptr);
            auto* place = xcb_translate_coordinates_reply(
                connection_, xcb_translate_coordinates(connection_, window, root, 0, 0), nullptr);
            bool matches = false;
            if (classed != nullptr && shape != nullptr && place != nullptr) {
                // WM_CLASS holds the instance and then the class, each ending in a NUL.
                std::string value(static_cast<const char*>(xcb_get_property_value(classed)),
                                  static_cast<size_t>(xcb_get_property_value_length(classed)));
                size_t split = value.find('\0');
                std::string windowClass = split == std::string::npos ? "" : value.substr(split + 1);
                if (!windowClass.empty() && windowClass.back() == '\0') windowClass.pop_back();
                matches = strcasecmp(windowClass.c_str(), resourceClass.c_str()) == 0 && near(x, place->dst_x) &&
                          near(y, place->dst_y) && near(width, shape->width) && near(height, shape->height);
            }
            std::free(classed);
            std::free(shape);
            std::free(place);
            if (!matches) continue;
            if (found) return std::nullopt;
            found = window;
        }
        return found;
    }

private:
    bool connect() {
        if (connection_ != nullptr) return usable_;
        const char* display = std::getenv("DISPLAY");
        if (display == nullptr || *display == '\0') return false;
        connection_ = xcb_connect(display, nullptr);
        const xcb_query_extension_reply_t* extension =
            xcb_connection_has_error(connection_) ? nullptr : xcb_get_extension_data(connection_, &xcb_res_id);
        usable_ = extension != nullptr && extension->present;
        return usable_;
    }

    xcb_connection_t* connection_ = nullptr;
    bool usable_ = false;
};

class KWinPlatform final : public Platform {
public:
    explicit KWinPlatform(std::unique_ptr<KWin::Bus> bus) : bus_(std::move(bus)) {
        flusher_ = std::thread([this] { flushLoop(); });
    }

    ~KWinPlatform() override {
        {
            std::lock_guard<std::mutex> hold(lock_);
            stopping_ = true;
        }
        wake_.notify_all();
        flusher_.join();
        std::lock_guard<std::mutex> hold(lock_);
        flushLocked();
    }

    // Window access.
    bool accessibilityTrusted() override {
        std::lock_guard<std::mutex> hold(lock_);
        return listingLocked() != nullptr;
    }
    // Nothing to grant: any client of the session bus may ask KWin.
    void promptForAccessibilityTrust() override {}
    Element applicationElement(std::int32_t pid) override { return makeElement(pid, ""); }
    // Every question goes to KWin, never to the application.
    void setMessagingTimeout(const Element&, float) override {}

    std::optional<AttrValue> copyAttribute(const Element& element, const std::string& name) override {
        const Target* target = targetOf(element);
        if (target == nullptr) return std::nullopt;
        std::lock_guard<std::mutex> hold(lock_);
        auto listing = listingLocked();
        if (!listing) return std::nullopt;
        if (target->window.empty()) {
            if (name != "AXWindows") return std::nullopt;
            std::vector<Element> windows;
            for (const Window& window : *listing)
                if (window.pid == target->pid) windows.push_back(makeElement(window.pid, window.facts.id));
            return windows;
        }
        const Window* window = find(*listing, target->window);
        // What KWin no longer manages has nothing to tell.
        if (window == nullptr) return std::nullopt;
        const KWin::WindowFacts& facts = window->facts;
        if (name == "AXSubrole") {
            if (facts.dialog || (facts.normal && facts.transient)) return std::string("AXDialog");
            return std::string(facts.normal && !facts.desktopPart ? "AXStandardWindow" : "AXUnknown");
        }
        if (name == "AXTitle") return facts.caption;
        if (name == "AXPosition") return Point{facts.x, facts.y};
        if (name == "AXSize") return Size{facts.width, facts.height};
        if (name == "AXMinimized") return facts.minimized;
        if (name == "AXFullScreen") return facts.fullScreen;
        if (name == workspaceAttribute) {
            if (!facts.desktop) return std::nullopt;
            // KWin counts from 1; the seam from 0, and -1 stays "on all".
            return *facts.desktop < 0 ? std::int64_t{-1} : *facts.desktop - 1;
        }
        if (name == maximizedHorizontallyAttribute) return facts.maximizedHorizontally;
        if (name == maximizedVerticallyAttribute) return facts.maximizedVertically;
        if (name == kwinOutputAttribute) return facts.output;
        // Documents and everything else: KWin knows nothing of them.
        return std::nullopt;
    }

    void setAttribute(const Element& element, const std::string& name, const AttrValue& value) override {
        const Target* target = targetOf(element);
        if (target == nullptr || target->window.empty()) return;
        KWin::Change change;
        change.id = target->window;
        if (name == "AXSize" || name == "AXPosition") {
            change.kind = KWin::Change::Kind::frame;
            if (auto* size = std::get_if<Size>(&value)) {
                if (name != "AXSize") return;
                change.width = std::max(1.0, size->width);
                change.height = std::max(1.0, size->height);
            } else if (auto* point = std::get_if<Point>(&value)) {
                if (name != "AXPosition") return;
                change.x = point->x;
                change.y = point->y;
            } else {
                return;
            }
        } else if (name == workspaceAttribute) {
            auto* desktop = std::get_if<std::int64_t>(&value);
            if (desktop == nullptr || *desktop < -1 || *desktop > 0xFFFF) return;
            change.kind = KWin::Change::Kind::desktop;
            change.desktop = *desktop < 0 ? -1 : *desktop + 1;
        } else if (name == "AXMinimized" || name == "AXFullScreen") {
            auto* on = std::get_if<bool>(&value);
            if (on == nullptr) return;
            change.kind = name == "AXMinimized" ? KWin::Change::Kind::minimized : KWin::Change::Kind::fullScreen;
            change.on = *on;
        } else if (name == maximizedHorizontallyAttribute || name == maximizedVerticallyAttribute ||
                   name == maximizedAttribute) {
            auto* on = std::get_if<bool>(&value);
            if (on == nullptr) return;
            change.kind = KWin::Change::Kind::maximize;
        } else {
            return;
        }
        std::lock_guard<std::mutex> hold(lock_);
        if (change.kind == KWin::Change::Kind::maximize) {
            // KWin takes both axes at once: the one not written keeps what it
            // was last seen as, or last asked to be.
            bool on = std::get<bool>(value);
            auto [vertically, horizontally] = maximizedLocked(change.id);
            if (name != maximizedVerticallyAttribute) horizontally = on;
            if (name != maximizedHorizontallyAttribute) vertically = on;
            change.vertically = vertically;
            change.horizontally = horizontally;
            maximizedAsked_[change.id] = {vertically, horizontally};
        }
        queueLocked(std::move(change));
    }

    // KWin lists every managed window; there are no hidden ones to dig out.
    Element elementForRemoteToken(const RemoteToken&) override { return Element(); }

    bool sameElement(const Element& a, const Element& b) override {
        const Target* left = targetOf(a);
        const Target* right = targetOf(b);
        if (left == nullptr || right == nullptr) return false;
        return left->window == right->window && (!left->window.empty() || left->pid == right->pid);
    }

    // Applications.
    std::optional<std::string> ownBundleIdentifier() override { return std::string(kwinOwnIdentifier); }

    std::vector<App> runningApplications() override {
        std::vector<App> apps;
        std::vector<std::int32_t> seen;
        std::lock_guard<std::mutex> hold(lock_);
        auto listing = listingLocked();
        if (!listing) return apps;
        for (const Window& window : *listing) {
            if (window.pid <= 0 || std::find(seen.begin(), seen.end(), window.pid) != seen.end()) continue;
            seen.push_back(window.pid);
            apps.push_back(makeApp(window.pid));
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
        std::lock_guard<std::mutex> hold(lock_);
        auto listing = listingLocked();
        if (!listing || !active_) return std::nullopt;
        const Window* window = find(*listing, *active_);
        if (window == nullptr || window->pid <= 0) return std::nullopt;
        return makeApp(window->pid);
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
            if (!identity.resourceClass.empty())
                info.name = identity.resourceClass;
            else
                info.name = Process::commandName(info.pid);
            // Nothing else can recognise it, or start it as it was started.
            info.commandLine = Process::commandLine(info.pid);
        }
        // Panels, docks and the desktop belong to the desktop session, which starts them itself.
        if (identity.windows > 0 && identity.desktopParts == identity.windows)
            info.policy = ActivationPolicy::accessory;
        info.terminated = !Process::alive(info.pid);
        // A process counts as launched once KWin manages a window of it.
        info.finishedLaunching = identity.windows > 0;
        return info;
    }

    // KWin has no application-wide hiding; a snapshot taken here never records it.
    void hide(const App&) override {}

    // Only a window that is not minimized is brought forward: a restore never
    // un-minimizes a window by activating it.
    void activate(const App& app) override {
        std::lock_guard<std::mutex> hold(lock_);
        auto listing = listingLocked();
        if (!listing) return;
        for (const Window& window : *listing)
            if (window.pid == pidOf(app) && !window.facts.minimized) {
                KWin::Change change;
                change.id = window.facts.id;
                change.kind = KWin::Change::Kind::activate;
                queueLocked(std::move(change));
                return;
            }
    }

    std::optional<std::string> applicationPath(const std::string& bundleID) override {
        auto installed = entries();
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
            auto words = DesktopEntries::installedArguments(*entries(), request.path, why);
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

    // As on X11, many programs run one process per window; each recorded process comes back as one.
    bool separateInstances() override { return true; }
    // Nothing here checks a program before it runs; a snapshot may come from anywhere.
    bool opensRecordedApplications() override { return false; }
    // The session bus closed under us: KWin's session is over.
    bool desktopLost() override {
        std::lock_guard<std::mutex> hold(lock_);
        return bus_->lost();
    }

    bool openNewWindow(const App& app, ErrorSink onError) override {
        Identity identity = identify(pidOf(app));
        auto command = identity.entry ? DesktopEntries::newWindowArguments(*identity.entry) : std::nullopt;
        if (!command || command->empty()) return false;
        std::string why;
        if (!Launch::detached(*command, homeDirectory(), why)) {
            if (onError) onError(why);
            return false;
        }
        return true;
    }

    // Where a capture says it saw the windows: the compositor, and that it is Wayland.
    std::optional<std::string> windowManagerName() override { return std::string("KWin (Wayland)"); }

    // Windows here carry no document, so a restore never has any to reopen.
    void openDocuments(const std::vector<std::string>&, const std::string&, double, ErrorSink onError) override {
        if (onError) onError("opening documents is not supported under KWin");
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

    // Changes asked for go out before a wait: the wait is for them to happen.
    void sleep(double seconds) override {
        {
            std::lock_guard<std::mutex> hold(lock_);
            flushLocked();
        }
        if (seconds > 0) std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    }

private:
    // A window as one listing found it, with the process it belongs to.
    struct Window {
        KWin::WindowFacts facts;
        std::int32_t pid = 0;
    };
    using Windows = std::vector<Window>;

    struct Identity {
        std::optional<DesktopEntries::Entry> entry;
        std::string resourceClass;
        size_t windows = 0;
        size_t desktopParts = 0;
    };

    static const Window* find(const Windows& windows, const std::string& id) {
        for (const Window& window : windows)
            if (window.facts.id == id) return &window;
        return nullptr;
    }

    // Sends the changes asked for so far, as one script, and waits until
    // KWin has applied them: whatever is read next sees them.
    void flushLocked() {
        if (pending_.empty()) return;
        std::vector<KWin::Change> changes = std::move(pending_);
        pending_.clear();
        listing_.reset();
        std::string token = bus_->nextToken();
        std::string why;
        if (!bus_->runScript(KWin::changeScript(changes, bus_->replyAddress(), token), token, scriptTimeout, why))
            log(printable("KWin: " + std::to_string(changes.size()) + " window changes failed: " + why));
    }

    void queueLocked(KWin::Change change) {
        // Size and position written one after the other are one frame.
        if (change.kind == KWin::Change::Kind::frame && !pending_.empty()) {
            KWin::Change& last = pending_.back();
            if (last.kind == KWin::Change::Kind::frame && last.id == change.id) {
                if (change.x) last.x = change.x;
                if (change.y) last.y = change.y;
                if (change.width) last.width = change.width;
                if (change.height) last.height = change.height;
                lastChange_ = std::chrono::steady_clock::now();
                return;
            }
        }
        pending_.push_back(std::move(change));
        lastChange_ = std::chrono::steady_clock::now();
        wake_.notify_all();
    }

    // Changes nobody reads after still go out, a moment after the last one.
    void flushLoop() {
        std::unique_lock<std::mutex> hold(lock_);
        for (;;) {
            wake_.wait(hold, [this] { return stopping_ || !pending_.empty(); });
            if (stopping_) return;
            auto due = lastChange_ + changeGrace;
            if (std::chrono::steady_clock::now() < due) {
                wake_.wait_until(hold, due);
                continue;
            }
            flushLocked();
        }
    }

    // The windows as KWin lists them now (within one listing's lifetime);
    // nothing when KWin does not answer.
    std::shared_ptr<const Windows> listingLocked() {
        flushLocked();
        auto now = std::chrono::steady_clock::now();
        if (listing_ && now - listingTaken_ < listingLifetime) return listing_;
        std::string token = bus_->nextToken();
        std::string why;
        auto payload = bus_->runScript(KWin::listingScript(bus_->replyAddress(), token), token, scriptTimeout, why);
        auto parsed = payload ? KWin::parseListing(*payload) : std::nullopt;
        if (!parsed) {
            log(printable("KWin: cannot list the windows: " + (payload ? std::string("unreadable answer") : why)));
            listing_.reset();
            return nullptr;
        }
        auto windows = std::make_shared<Windows>();
        for (KWin::WindowFacts& facts : parsed->windows) {
            std::int32_t pid = facts.pid;
            if (pid <= 0 && facts.x11Window == 0)
                facts.x11Window = xwaylandPids_
                                      .windowAt(facts.resourceClass, facts.clientX, facts.clientY, facts.clientWidth,
                                                facts.clientHeight)
                                      .value_or(0);
            if (pid <= 0 && facts.x11Window != 0) pid = xwaylandPids_.pidOf(facts.x11Window).value_or(0);
            windows->push_back(Window{std::move(facts), pid});
        }
        listing_ = windows;
        lastSeen_ = windows;
        listingTaken_ = std::chrono::steady_clock::now();
        active_ = parsed->active;
        maximizedAsked_.clear();
        return listing_;
    }

    // A window's maximized state (vertically, horizontally): as last asked
    // for, else as last seen.
    std::pair<bool, bool> maximizedLocked(const std::string& id) {
        if (auto asked = maximizedAsked_.find(id); asked != maximizedAsked_.end()) return asked->second;
        auto listing = listing_ ? listing_ : lastSeen_;
        if (listing)
            if (const Window* window = find(*listing, id))
                return {window->facts.maximizedVertically, window->facts.maximizedHorizontally};
        return {false, false};
    }

    // The first of the process's windows whose identity matches an entry names it.
    Identity identify(std::int32_t pid) {
        Identity identity;
        std::vector<KWin::WindowFacts> owned;
        {
            std::lock_guard<std::mutex> hold(lock_);
            auto listing = listingLocked();
            if (listing)
                for (const Window& window : *listing)
                    if (window.pid == pid) owned.push_back(window.facts);
        }
        identity.windows = owned.size();
        auto installed = entries();
        for (const KWin::WindowFacts& facts : owned) {
            if (facts.desktopPart) identity.desktopParts += 1;
            if (identity.resourceClass.empty()) identity.resourceClass = facts.resourceClass;
            // A Wayland window's app id is its desktop file's name, as a GTK
            // program's application id is on X11.
            if (auto entry = DesktopEntries::match(*installed, {facts.resourceName, facts.resourceClass,
                                                                facts.desktopFile})) {
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

    // Read again whenever an application folder changed, so that a long-running
    // tray knows programs installed or removed since it started.
    std::shared_ptr<const std::vector<DesktopEntries::Entry>> entries() { return entries_.current(); }

    std::mutex lock_;
    std::unique_ptr<KWin::Bus> bus_;
    std::shared_ptr<const Windows> listing_;   // while it stands
    std::shared_ptr<const Windows> lastSeen_;  // the latest, however old
    std::chrono::steady_clock::time_point listingTaken_;
    std::optional<std::string> active_;
    std::map<std::string, std::pair<bool, bool>> maximizedAsked_;
    std::vector<KWin::Change> pending_;
    std::chrono::steady_clock::time_point lastChange_;
    XWaylandPids xwaylandPids_;
    std::condition_variable wake_;
    bool stopping_ = false;
    std::thread flusher_;
    DesktopEntries::Catalog entries_;
};

}  // namespace

std::unique_ptr<Platform> openKWinPlatform(std::string& why) {
    auto bus = KWin::Bus::open(why);
    if (!bus) return nullptr;
    return std::make_unique<KWinPlatform>(std::move(bus));
}

}  // namespace tarnwick
