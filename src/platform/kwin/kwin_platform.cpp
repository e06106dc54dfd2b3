// The KWin backend: windows listed by a KWin script kept loaded while the
// backend lives (one answer per capture) and placed by one script per placing
// pass; applications are the processes that own the windows, named and
// relaunched through their desktop entries.
#include "platform/kwin/kwin_platform.h"

#include "model/printable.h"
#include "platform/kwin/kwin_bus.h"
#include "platform/kwin/kwin_scripts.h"
#include "platform/linux/linux_platform.h"

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
#include <set>
#include <system_error>
#include <thread>
#include <vector>

namespace tarnwick {

namespace {

// How long one listing stands for the desktop: a capture asks a dozen
// questions of every window within it. A read of a window we changed, or
// a change of the active window, ends it at once.
constexpr auto listingLifetime = std::chrono::milliseconds(50);
// Changes wait this long for more before they go out on their own, so that
// none is left waiting when nothing reads after them.
constexpr auto changeGrace = std::chrono::milliseconds(30);
// A script that has not answered by then is not going to.
constexpr auto scriptTimeout = std::chrono::milliseconds(3000);
// How often the listing script kept in KWin is seen to: well within the
// 25 s after which KWin gives up on its wait.
constexpr auto keepWaitingEvery = std::chrono::seconds(4);
// After this many failures in a row it is no longer loaded: each listing
// loads a script of its own, slower but sure.
constexpr int residentGivenUpAfter = 3;

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

    // HACK: KWin 6 no longer tells a script an XWayland window's X11 id.
    // Each such window is paired with a client window XWayland lists with
    // the same class and the same client area, in the order both list them,
    // each X11 window given once and none of those already `taken`; a window
    // with no such partner gets none. Every question goes out before the
    // first answer is read.
    struct Unpaired {
        std::string resourceClass;
        double x = 0, y = 0, width = 0, height = 0;
    };
    std::vector<std::uint32_t> windowsAt(const std::vector<Unpaired>& wanted, const std::set<std::uint32_t>& taken) {
        std::vector<std::uint32_t> paired(wanted.size(), 0);
        if (wanted.empty() || !connect()) return paired;
        xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
        const char name[] = "_NET_CLIENT_LIST";
        auto* atom = xcb_intern_atom_reply(connection_, xcb_intern_atom(connection_, 1, sizeof name - 1, name), nullptr);
        if (atom == nullptr) return paired;
        xcb_atom_t clientList = atom->atom;
        std::free(atom);
        auto* listed = xcb_get_property_reply(
            connection_, xcb_get_property(connection_, 0, root, clientList, XCB_ATOM_WINDOW, 0, 4096), nullptr);
        if (listed == nullptr) return paired;
        std::vector<xcb_window_t> windows;
        if (listed->format == 32) {
            auto* first = static_cast<xcb_window_t*>(xcb_get_property_value(listed));
            windows.assign(first, first + xcb_get_property_value_length(listed) / 4);
        }
        std::free(listed);
        struct Asked {
            xcb_get_property_cookie_t classed;
            xcb_get_geometry_cookie_t shape;
            xcb_translate_coordinates_cookie_t place;
        };
        std::vector<Asked> asked;
        for (xcb_window_t window : windows)
            asked.push_back({xcb_get_property(connection_, 0, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, 256),
                             xcb_get_geometry(connection_, window),
                             xcb_translate_coordinates(connection_, window, root, 0, 0)});
        struct Client {
            xcb_window_t window = 0;
            std::string windowClass;
            double x = 0, y = 0, width = 0, height = 0;
            bool taken = false;
        };
        std::vector<Client> clients;
        for (size_t i = 0; i < windows.size(); ++i) {
            auto* classed = xcb_get_property_reply(connection_, asked[i].classed, nullptr);
            auto* shape = xcb_get_geometry_reply(connection_, asked[i].shape, nullptr);
            auto* place = xcb_translate_coordinates_reply(connection_, asked[i].place, nullptr);
            if (classed != nullptr && shape != nullptr && place != nullptr) {
                // WM_CLASS holds the instance and then the class, each ending in a NUL.
                std::string value(static_cast<const char*>(xcb_get_property_value(classed)),
                                  static_cast<size_t>(xcb_get_property_value_length(classed)));
                size_t split = value.find('\0');
                std::string windowClass = split == std::string::npos ? "" : value.substr(split + 1);
                if (!windowClass.empty() && windowClass.back() == '\0') windowClass.pop_back();
                clients.push_back({windows[i], windowClass, double(place->dst_x), double(place->dst_y),
                                   double(shape->width), double(shape->height), taken.count(windows[i]) > 0});
            }
            std::free(classed);
            std::free(shape);
            std::free(place);
        }
        auto near = [](double a, double b) { return std::abs(a - b) <= 1; };
        for (size_t i = 0; i < wanted.size(); ++i) {
            const Unpaired& w = wanted[i];
            if (w.resourceClass.empty()) continue;
            for (Client& client : clients)
                if (!client.taken && strcasecmp(client.windowClass.c_str(), w.resourceClass.c_str()) == 0 &&
                    near(w.x, client.x) && near(w.y, client.y) && near(w.width, client.width) &&
                    near(w.height, client.height)) {
                    client.taken = true;
                    paired[i] = client.window;
                    break;
                }
        }
        return paired;
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

class KWinPlatform final : public LinuxPlatform {
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
        auto listing = listingLocked(target->window);
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
        if (name == outputAttribute) {
            if (facts.output.empty()) return std::nullopt;
            return facts.output;
        }
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
            if (desktop == nullptr || *desktop < -1 || *desktop > lastWorkspace) return;
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

    // Only a window that is not minimized is brought forward: a restore never
    // un-minimizes a window by activating it.
    void activate(const App& app) override {
        std::lock_guard<std::mutex> hold(lock_);
        // Whether a window is minimized may be one of our own changes: seen afresh.
        if (!changed_.empty()) listing_.reset();
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

    // The session bus closed under us: KWin's session is over.
    bool desktopLost() override {
        std::lock_guard<std::mutex> hold(lock_);
        return bus_->lost();
    }

    // Where a capture says it saw the windows: the compositor, and that it is Wayland.
    std::optional<std::string> windowManagerName() override { return std::string("KWin (Wayland)"); }

    std::vector<Output> outputs() override {
        std::lock_guard<std::mutex> hold(lock_);
        if (!listingLocked()) return {};
        return outputs_;
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

    static const Window* find(const Windows& windows, const std::string& id) {
        for (const Window& window : windows)
            if (window.facts.id == id) return &window;
        return nullptr;
    }

    // Sends the changes asked for so far, as one script, and waits until
    // KWin has applied them. The windows changed stay marked until the next
    // listing: a read of one of them lists again and sees the change.
    void flushLocked() {
        if (pending_.empty()) return;
        std::vector<KWin::Change> changes = std::move(pending_);
        pending_.clear();
        std::string token = bus_->nextToken();
        std::string why;
        if (!bus_->runScript(KWin::changeScript(changes, bus_->replyAddress(), token), token, scriptTimeout, why))
            platformLog(printable("KWin: " + std::to_string(changes.size()) + " window changes failed: " + why));
    }

    void queueLocked(KWin::Change change) {
        changed_.insert(change.id);
        // Which window is active is no one window's fact: the next read lists again.
        if (change.kind == KWin::Change::Kind::activate) listing_.reset();
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

    // Changes nobody reads after still go out, a moment after the last one;
    // and the listing script kept in KWin is kept waiting.
    void flushLoop() {
        std::unique_lock<std::mutex> hold(lock_);
        for (;;) {
            bool woken = wake_.wait_for(hold, keepWaitingEvery, [this] { return stopping_ || !pending_.empty(); });
            if (stopping_) return;
            bus_->keepResidentWaiting();
            if (!woken) continue;
            auto due = lastChange_ + changeGrace;
            if (std::chrono::steady_clock::now() < due) {
                wake_.wait_until(hold, due);
                continue;
            }
            flushLocked();
        }
    }

    // The windows as KWin lists them (nothing when KWin does not answer): the
    // listing that stands; made afresh, after our changes go out, when
    // there is none, it is old, or `window` is one we changed since it was
    // made. Reads of other windows leave our changes batched: a restore
    // places one program after another, and its windows go out together.
    std::shared_ptr<const Windows> listingLocked(const std::string& window = {}) {
        auto now = std::chrono::steady_clock::now();
        if (listing_ && now - listingTaken_ < listingLifetime && (window.empty() || !changed_.count(window)))
            return listing_;
        flushLocked();
        changed_.clear();
        std::string token = bus_->nextToken();
        std::string why;
        std::optional<std::string> payload;
        // A KWin started again is given another chance.
        if (bus_->kwinStarts() != kwinStartsSeen_) {
            kwinStartsSeen_ = bus_->kwinStarts();
            residentFailures_ = 0;
        }
        if (residentFailures_ < residentGivenUpAfter) {
            payload = bus_->askResident(KWin::residentListingScript, token, scriptTimeout, why);
            if (payload) {
                residentFailures_ = 0;
            } else if (++residentFailures_ == residentGivenUpAfter) {
                platformLog(printable("KWin: the listing script kept in KWin failed (" + why +
                                      "); each listing now loads a script of its own"));
            }
        }
        if (!payload) {
            token = bus_->nextToken();
            why.clear();
            payload = bus_->runScript(KWin::listingScript(bus_->replyAddress(), token), token, scriptTimeout, why);
        }
        auto parsed = payload ? KWin::parseListing(*payload) : std::nullopt;
        if (!parsed) {
            platformLog(printable("KWin: cannot list the windows: " + (payload ? std::string("unreadable answer") : why)));
            listing_.reset();
            return nullptr;
        }
        nameOutputsLocked(*parsed);
        auto windows = std::make_shared<Windows>();
        // Wayland windows have a pid; only XWayland ones can be without. A
        // window once paired keeps its X11 window for as long as KWin lists
        // it: a window being moved may be between places when listed.
        std::map<std::string, std::uint32_t> stillPaired;
        std::vector<XWaylandPids::Unpaired> unpaired;
        std::vector<KWin::WindowFacts*> unpairedFacts;
        for (KWin::WindowFacts& facts : parsed->windows) {
            if (facts.pid > 0 || facts.x11Window != 0) continue;
            if (auto known = x11Windows_.find(facts.id); known != x11Windows_.end()) {
                facts.x11Window = known->second;
                stillPaired[facts.id] = known->second;
            } else if (!facts.resourceClass.empty()) {
                unpaired.push_back({facts.resourceClass, facts.clientX, facts.clientY, facts.clientWidth,
                                    facts.clientHeight});
                unpairedFacts.push_back(&facts);
            }
        }
        if (!unpaired.empty()) {
            std::set<std::uint32_t> taken;
            for (const auto& pairing : stillPaired) taken.insert(pairing.second);
            auto found = xwaylandPids_.windowsAt(unpaired, taken);
            for (size_t i = 0; i < found.size(); ++i) {
                unpairedFacts[i]->x11Window = found[i];
                if (found[i] != 0) stillPaired[unpairedFacts[i]->id] = found[i];
            }
        }
        x11Windows_ = std::move(stillPaired);
        // The process behind an X11 window is asked once: it stays for the window's life.
        std::map<std::pair<std::string, std::uint32_t>, std::int32_t> stillKnown;
        for (KWin::WindowFacts& facts : parsed->windows) {
            std::int32_t pid = facts.pid;
            if (pid <= 0 && facts.x11Window != 0) {
                auto key = std::make_pair(facts.id, facts.x11Window);
                if (auto known = x11Pids_.find(key); known != x11Pids_.end()) {
                    pid = known->second;
                } else {
                    pid = xwaylandPids_.pidOf(facts.x11Window).value_or(0);
                }
                if (pid > 0) stillKnown[key] = pid;
            }
            windows->push_back(Window{std::move(facts), pid});
        }
        x11Pids_ = std::move(stillKnown);
        listing_ = windows;
        lastSeen_ = windows;
        listingTaken_ = std::chrono::steady_clock::now();
        active_ = parsed->active;
        outputs_ = std::move(parsed->outputs);
        maximizedAsked_.clear();
        return listing_;
    }

    // HACK: a KWin 5 script knows outputs by index only; KWin's support
    // information names them, with their geometry. Asked again only when the
    // outputs change.
    void nameOutputsLocked(KWin::Listing& listing) {
        bool unnamed = false;
        for (const Output& output : listing.outputs) unnamed = unnamed || output.name.empty();
        if (!unnamed) return;
        std::vector<Frame> frames;
        for (const Output& output : listing.outputs) frames.push_back(output.frame);
        if (frames != describedFrames_) {
            std::string why;
            auto text = bus_->supportInformation(why);
            described_ = text ? KWin::outputsDescribed(*text) : std::vector<Output>{};
            describedFrames_ = frames;
        }
        for (Output& output : listing.outputs)
            for (const Output& described : described_)
                if (output.name.empty() && described.frame == output.frame) output.name = described.name;
        // Windows name their output by its index there.
        for (KWin::WindowFacts& window : listing.windows) {
            if (window.output.empty() ||
                window.output.find_first_not_of("0123456789") != std::string::npos || window.output.size() > 4)
                continue;
            size_t index = std::stoul(window.output);
            window.output = index < listing.outputs.size() ? listing.outputs[index].name : std::string();
        }
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

    std::vector<std::int32_t> windowOwners() override {
        std::vector<std::int32_t> owners;
        std::lock_guard<std::mutex> hold(lock_);
        if (auto listing = listingLocked())
            for (const Window& window : *listing)
                if (window.pid > 0 && std::find(owners.begin(), owners.end(), window.pid) == owners.end())
                    owners.push_back(window.pid);
        return owners;
    }

    // A Wayland window's app id is its desktop file's name, as a GTK
    // program's application id is on X11.
    std::vector<OwnedWindow> windowsOwnedBy(std::int32_t pid) override {
        std::vector<OwnedWindow> owned;
        std::lock_guard<std::mutex> hold(lock_);
        if (auto listing = listingLocked())
            for (const Window& window : *listing)
                if (window.pid == pid)
                    owned.push_back(OwnedWindow{window.facts.resourceName, window.facts.resourceClass,
                                                window.facts.desktopFile, window.facts.desktopPart});
        return owned;
    }

    std::optional<std::int32_t> activeOwner() override {
        std::lock_guard<std::mutex> hold(lock_);
        auto listing = listingLocked();
        if (!listing || !active_) return std::nullopt;
        const Window* window = find(*listing, *active_);
        if (window == nullptr || window->pid <= 0) return std::nullopt;
        return window->pid;
    }

    std::string desktopKind() const override { return "under KWin"; }

    std::mutex lock_;
    std::unique_ptr<KWin::Bus> bus_;
    std::shared_ptr<const Windows> listing_;   // while it stands
    std::shared_ptr<const Windows> lastSeen_;  // the latest, however old
    std::chrono::steady_clock::time_point listingTaken_;
    std::optional<std::string> active_;
    std::vector<Output> outputs_;           // as the latest listing found them
    std::vector<Output> described_;         // KWin 5: the outputs' names, from its support information
    std::vector<Frame> describedFrames_;    // the outputs they were asked for
    std::map<std::string, std::pair<bool, bool>> maximizedAsked_;
    std::vector<KWin::Change> pending_;
    std::set<std::string> changed_;  // windows changed since the listing was made
    std::map<std::string, std::uint32_t> x11Windows_;  // KWin 6: the X11 window paired with a KWin id
    std::map<std::pair<std::string, std::uint32_t>, std::int32_t> x11Pids_;  // by KWin id and X11 window
    std::chrono::steady_clock::time_point lastChange_;
    int residentFailures_ = 0;  // of the listing script kept in KWin, in a row
    std::uint64_t kwinStartsSeen_ = 0;
    XWaylandPids xwaylandPids_;
    std::condition_variable wake_;
    bool stopping_ = false;
    std::thread flusher_;
};

}  // namespace

std::unique_ptr<Platform> openKWinPlatform(std::string& why) {
    auto bus = KWin::Bus::open(why);
    if (!bus) return nullptr;
    return std::make_unique<KWinPlatform>(std::move(bus));
}

}  // namespace tarnwick
