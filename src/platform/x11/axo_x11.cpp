// The X11 window half: EWMH properties and client messages over xcb.
#include "platform/x11/axo_x11.h"

#include "model/utf8.h"

#include <xcb/randr.h>
#include <xcb/res.h>
#include <xcb/xcb.h>
#include <xcb/xcb_ewmh.h>
#include <xcb/xcb_icccm.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <map>
#include <mutex>
#include <set>
#include <thread>

namespace tarnwick::AXX11 {

namespace {

// What an element stands for: a client window, or (window 0) the process that
// owns windows, as the application element the window list is asked of.
struct Target {
    std::int32_t pid = 0;
    WindowID window = 0;
};

const Target* targetOf(const Element& element) { return static_cast<const Target*>(element.get()); }

Element makeElement(std::int32_t pid, WindowID window) {
    return Element(std::make_shared<const Target>(Target{pid, window}));
}

struct FreeReply {
    void operator()(void* reply) const { std::free(reply); }
};
template <class T>
using Reply = std::unique_ptr<T, FreeReply>;

// ISO 8859-1, the encoding of a WM_NAME of type STRING, as UTF-8.
std::string latin1ToUtf8(std::string_view text) {
    std::string out;
    for (char raw : text) {
        auto c = static_cast<unsigned char>(raw);
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back(static_cast<char>(0xC0 | (c >> 6)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }
    return out;
}

// The rectangle the window manager draws: the client's area in root
// coordinates grown by the frame extents.
struct Rect {
    double x = 0, y = 0, w = 0, h = 0;
};

}  // namespace

namespace {

// What one pass over the managed windows learned of a window.
struct Facts {
    std::optional<std::int32_t> pid;
    std::optional<WindowClass> wmClass;
    std::optional<std::string> gtkApplicationId;
    std::string subrole;
    bool desktopPart = false;
    std::optional<std::string> title;
    std::optional<Rect> frame;
    std::vector<xcb_atom_t> states;
    std::optional<std::int64_t> workspace;
};

// The managed windows and their facts, as one pass found them.
struct Pass {
    std::chrono::steady_clock::time_point taken;
    bool managerAnswers = false;
    std::vector<WindowID> clients;
    std::map<WindowID, Facts> facts;
    std::vector<Output> outputs;
    std::set<WindowID> stale;  // written to since: asked again before they are read
};

// How long a pass stands for the desktop. A capture asks a dozen questions of
// every window, each a round trip when asked alone; a pass asks them all at
// once. Our own requests end a pass at once, and polling waits (a restore
// waiting for windows) are far longer than this.
constexpr auto passLifetime = std::chrono::milliseconds(50);
// As long as the facts of one pass: a quit program's window id can come back
// as a new program's within a second, never within this.
constexpr auto pidTrust = passLifetime;

}  // namespace

struct Connection::State {
    xcb_connection_t* connection = nullptr;
    xcb_ewmh_connection_t ewmh{};
    bool ewmhReady = false;
    int screenNumber = 0;
    xcb_window_t root = 0;
    xcb_atom_t changeState = XCB_ATOM_NONE;  // WM_CHANGE_STATE, the ICCCM iconify request
    xcb_atom_t gtkApplicationId = XCB_ATOM_NONE;  // _GTK_APPLICATION_ID
    bool resourceExtension = false;          // X-Resource, for the pid of a client that never says
    bool randr = false;                      // RandR, for the monitors

    // A window's owner never changes while it exists, but the server hands a
    // destroyed window's id to the next client that asks (a program quit and
    // started again often gets its old ids back): an owner learned from the
    // server is trusted for a moment only, which covers one capture, never a
    // long-running application's next look.
    struct KnownPid {
        std::int32_t pid = 0;
        std::chrono::steady_clock::time_point learned;
    };
    std::mutex pidLock;
    std::map<WindowID, KnownPid> pids;

    // Under pidLock.
    std::optional<std::int32_t> knownPid(WindowID window) {
        auto found = pids.find(window);
        if (found == pids.end()) return std::nullopt;
        if (std::chrono::steady_clock::now() - found->second.learned > pidTrust) {
            pids.erase(found);
            return std::nullopt;
        }
        return found->second.pid;
    }
    void remember(WindowID window, std::int32_t pid) { pids[window] = KnownPid{pid, std::chrono::steady_clock::now()}; }

    std::mutex passLock;
    std::shared_ptr<Pass> pass;  // the latest, while it stands

    ~State() {
        if (ewmhReady) xcb_ewmh_connection_wipe(&ewmh);
        if (connection != nullptr) xcb_disconnect(connection);
    }

    void flush() { xcb_flush(connection); }

    std::optional<std::int32_t> pidFromResources(WindowID window) {
        if (!resourceExtension) return std::nullopt;
        xcb_res_client_id_spec_t spec{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
        return pidReply(xcb_res_query_client_ids(connection, 1, &spec));
    }

    std::optional<std::int32_t> pidReply(xcb_res_query_client_ids_cookie_t cookie) {
        Reply<xcb_res_query_client_ids_reply_t> reply(xcb_res_query_client_ids_reply(connection, cookie, nullptr));
        if (!reply) return std::nullopt;
        for (auto it = xcb_res_query_client_ids_ids_iterator(reply.get()); it.rem > 0;
             xcb_res_client_id_value_next(&it)) {
            if (!(it.data->spec.mask & XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID)) continue;
            if (xcb_res_client_id_value_value_length(it.data) < 1) continue;
            return static_cast<std::int32_t>(*xcb_res_client_id_value_value(it.data));
        }
        return std::nullopt;
    }

    std::optional<std::int32_t> pidOf(WindowID window) {
        {
            std::lock_guard<std::mutex> hold(pidLock);
            if (auto known = knownPid(window)) return known;
        }
        std::optional<std::int32_t> pid;
        std::uint32_t said = 0;
        if (xcb_ewmh_get_wm_pid_reply(&ewmh, xcb_ewmh_get_wm_pid(&ewmh, window), &said, nullptr) && said > 0)
            pid = static_cast<std::int32_t>(said);
        // Classic Xt programs never set _NET_WM_PID; the server knows the
        // process of a local client all the same.
        if (!pid) pid = pidFromResources(window);
        if (pid) {
            std::lock_guard<std::mutex> hold(pidLock);
            remember(window, *pid);
        }
        return pid;
    }

    std::vector<WindowID> clients() {
        std::vector<WindowID> windows;
        xcb_ewmh_get_windows_reply_t list;
        if (!xcb_ewmh_get_client_list_reply(&ewmh, xcb_ewmh_get_client_list(&ewmh, screenNumber), &list, nullptr))
            return windows;
        windows.assign(list.windows, list.windows + list.windows_len);
        xcb_ewmh_get_windows_reply_wipe(&list);
        // Forget the owners of windows that are gone, so a reused id is asked again.
        std::lock_guard<std::mutex> hold(pidLock);
        std::set<WindowID> live(windows.begin(), windows.end());
        std::erase_if(pids, [&](const auto& entry) { return !live.count(entry.first); });
        return windows;
    }

    std::vector<xcb_atom_t> atoms(xcb_get_property_cookie_t cookie) {
        std::vector<xcb_atom_t> found;
        xcb_ewmh_get_atoms_reply_t reply;
        if (!xcb_ewmh_get_atoms_reply(&ewmh, cookie, &reply, nullptr)) return found;
        found.assign(reply.atoms, reply.atoms + reply.atoms_len);
        xcb_ewmh_get_atoms_reply_wipe(&reply);
        return found;
    }

    bool hasState(WindowID window, xcb_atom_t state) {
        auto states = atoms(xcb_ewmh_get_wm_state(&ewmh, window));
        return std::find(states.begin(), states.end(), state) != states.end();
    }

    // Normal windows that are not transient for another are the ones a user
    // arranges; dialogs, menus, docks and the like come and go with them.
    std::string subrole(std::optional<xcb_atom_t> type, bool transient) {
        if (type == ewmh._NET_WM_WINDOW_TYPE_DIALOG || (!type && transient)) return "AXDialog";
        if (type && type != ewmh._NET_WM_WINDOW_TYPE_NORMAL) return "AXUnknown";
        return transient ? "AXDialog" : "AXStandardWindow";
    }

    // The first window type the client lists that we know.
    std::optional<xcb_atom_t> knownType(const std::vector<xcb_atom_t>& listed) {
        const xcb_atom_t known[] = {
            ewmh._NET_WM_WINDOW_TYPE_NORMAL,  ewmh._NET_WM_WINDOW_TYPE_DIALOG,  ewmh._NET_WM_WINDOW_TYPE_DESKTOP,
            ewmh._NET_WM_WINDOW_TYPE_DOCK,    ewmh._NET_WM_WINDOW_TYPE_TOOLBAR, ewmh._NET_WM_WINDOW_TYPE_MENU,
            ewmh._NET_WM_WINDOW_TYPE_UTILITY, ewmh._NET_WM_WINDOW_TYPE_SPLASH,
        };
        for (xcb_atom_t atom : listed)
            if (std::find(std::begin(known), std::end(known), atom) != std::end(known)) return atom;
        return std::nullopt;
    }

    // The manager names a child window on the root, and that window names itself.
    bool managerAnswers() {
        xcb_window_t check = XCB_NONE;
        if (!xcb_ewmh_get_supporting_wm_check_reply(&ewmh, xcb_ewmh_get_supporting_wm_check(&ewmh, root), &check,
                                                    nullptr))
            return false;
        xcb_window_t self = XCB_NONE;
        return xcb_ewmh_get_supporting_wm_check_reply(&ewmh, xcb_ewmh_get_supporting_wm_check(&ewmh, check), &self,
                                                      nullptr) &&
               self == check;
    }

    // Every question about every managed window goes out before the first
    // answer is awaited: a pass costs about two round trips, whatever the count.
    std::shared_ptr<Pass> fetch() {
        auto made = std::make_shared<Pass>();
        made->taken = std::chrono::steady_clock::now();
        made->managerAnswers = managerAnswers();
        made->clients = clients();
        made->facts = factsFor(made->clients);
        made->outputs = monitors();
        return made;
    }

    // RandR's monitors (1.5): what the desktop's own settings call screens,
    // one per output, or several outputs shown as one. None where the server
    // does not tell.
    std::vector<Output> monitors() {
        std::vector<Output> found;
        if (!randr) return found;
        Reply<xcb_randr_get_monitors_reply_t> reply(
            xcb_randr_get_monitors_reply(connection, xcb_randr_get_monitors(connection, root, 1), nullptr));
        if (!reply) return found;
        std::vector<std::pair<xcb_get_atom_name_cookie_t, Frame>> asked;
        for (auto it = xcb_randr_get_monitors_monitors_iterator(reply.get()); it.rem > 0;
             xcb_randr_monitor_info_next(&it))
            asked.emplace_back(xcb_get_atom_name(connection, it.data->name),
                               Frame{double(it.data->x), double(it.data->y), double(it.data->width),
                                     double(it.data->height)});
        for (auto& [cookie, frame] : asked) {
            Reply<xcb_get_atom_name_reply_t> name(xcb_get_atom_name_reply(connection, cookie, nullptr));
            if (!name || frame.w <= 0 || frame.h <= 0) continue;
            found.push_back(Output{std::string(xcb_get_atom_name_name(name.get()),
                                               static_cast<size_t>(xcb_get_atom_name_name_length(name.get()))),
                                   frame});
        }
        return found;
    }

    // The facts of these windows, every question sent before the first answer is read.
    std::map<WindowID, Facts> factsFor(const std::vector<WindowID>& windows) {
        std::map<WindowID, Facts> found;
        struct Cookies {
            xcb_get_property_cookie_t pid, wmClass, gtk, type, transient, netName, plainName, extents, states, desktop;
            xcb_get_geometry_cookie_t geometry;
            xcb_translate_coordinates_cookie_t origin;
        };
        std::vector<Cookies> asked;
        asked.reserve(windows.size());
        for (WindowID window : windows) {
            Cookies c{};
            c.pid = xcb_ewmh_get_wm_pid(&ewmh, window);
            c.wmClass = xcb_icccm_get_wm_class(connection, window);
            if (gtkApplicationId != XCB_ATOM_NONE)
                c.gtk = xcb_get_property(connection, 0, window, gtkApplicationId, ewmh.UTF8_STRING, 0, 1024);
            c.type = xcb_ewmh_get_wm_window_type(&ewmh, window);
            c.transient = xcb_icccm_get_wm_transient_for(connection, window);
            c.netName = xcb_ewmh_get_wm_name(&ewmh, window);
            c.plainName = xcb_icccm_get_wm_name(connection, window);
            c.geometry = xcb_get_geometry(connection, window);
            c.origin = xcb_translate_coordinates(connection, window, root, 0, 0);
            c.extents = xcb_ewmh_get_frame_extents(&ewmh, window);
            c.states = xcb_ewmh_get_wm_state(&ewmh, window);
            c.desktop = xcb_ewmh_get_wm_desktop(&ewmh, window);
            asked.push_back(c);
        }
        for (size_t i = 0; i < asked.size(); ++i) {
            WindowID window = windows[i];
            const Cookies& c = asked[i];
            Facts facts;
            std::uint32_t said = 0;
            if (xcb_ewmh_get_wm_pid_reply(&ewmh, c.pid, &said, nullptr) && said > 0)
                facts.pid = static_cast<std::int32_t>(said);
            xcb_icccm_get_wm_class_reply_t wmClass;
            if (xcb_icccm_get_wm_class_reply(connection, c.wmClass, &wmClass, nullptr)) {
                facts.wmClass = WindowClass{wmClass.instance_name ? wmClass.instance_name : "",
                                            wmClass.class_name ? wmClass.class_name : ""};
                xcb_icccm_get_wm_class_reply_wipe(&wmClass);
            }
            if (gtkApplicationId != XCB_ATOM_NONE) facts.gtkApplicationId = utf8Reply(c.gtk);
            auto type = knownType(atoms(c.type));
            xcb_window_t owner = XCB_NONE;
            bool transient = xcb_icccm_get_wm_transient_for_reply(connection, c.transient, &owner, nullptr) &&
                             owner != XCB_NONE;
            facts.subrole = subrole(type, transient);
            facts.desktopPart = type == ewmh._NET_WM_WINDOW_TYPE_DOCK || type == ewmh._NET_WM_WINDOW_TYPE_DESKTOP;
            facts.title = titleReply(c.netName, c.plainName);
            facts.frame = frameReply(c.geometry, c.origin, c.extents);
            facts.states = atoms(c.states);
            std::uint32_t desktop = 0;
            if (xcb_ewmh_get_wm_desktop_reply(&ewmh, c.desktop, &desktop, nullptr))
                facts.workspace = desktop == 0xFFFFFFFF ? -1 : std::int64_t{desktop};
            found.emplace(window, std::move(facts));
        }
        // Owners that never said: known from before, or asked of the server, all at once.
        std::vector<std::pair<WindowID, xcb_res_query_client_ids_cookie_t>> unknown;
        {
            std::lock_guard<std::mutex> hold(pidLock);
            for (auto& [window, facts] : found) {
                if (facts.pid) continue;
                if (auto known = knownPid(window)) {
                    facts.pid = known;
                } else if (resourceExtension) {
                    xcb_res_client_id_spec_t spec{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
                    unknown.emplace_back(window, xcb_res_query_client_ids(connection, 1, &spec));
                }
            }
        }
        for (const auto& [window, cookie] : unknown) found.at(window).pid = pidReply(cookie);
        std::lock_guard<std::mutex> hold(pidLock);
        for (const auto& [window, facts] : found)
            if (facts.pid) remember(window, *facts.pid);
        return found;
    }

    // The pass that stands now, made when there is none; windows we wrote to
    // are asked again first. A pass is never changed once handed out: a fresh
    // copy takes its place.
    std::shared_ptr<const Pass> current() {
        std::lock_guard<std::mutex> hold(passLock);
        if (!pass || std::chrono::steady_clock::now() - pass->taken > passLifetime) {
            pass = fetch();
        } else if (!pass->stale.empty()) {
            auto fresh = std::make_shared<Pass>(*pass);
            std::vector<WindowID> again(fresh->stale.begin(), fresh->stale.end());
            for (auto& [window, facts] : factsFor(again)) fresh->facts[window] = std::move(facts);
            fresh->stale.clear();
            pass = std::move(fresh);
        }
        return pass;
    }

    // Our own request changes this window: its facts are asked again before they are read.
    void forget(WindowID window) {
        std::lock_guard<std::mutex> hold(passLock);
        if (!pass) return;
        auto marked = std::make_shared<Pass>(*pass);
        marked->stale.insert(window);
        pass = std::move(marked);
    }

    std::optional<Facts> factsOf(WindowID window) {
        auto now = current();
        auto found = now->facts.find(window);
        if (found == now->facts.end()) return std::nullopt;
        return found->second;
    }

    std::optional<std::string> utf8Reply(xcb_get_property_cookie_t cookie) {
        Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(connection, cookie, nullptr));
        if (!reply || reply->format != 8 || reply->type != ewmh.UTF8_STRING) return std::nullopt;
        std::string text(static_cast<const char*>(xcb_get_property_value(reply.get())),
                         static_cast<size_t>(xcb_get_property_value_length(reply.get())));
        if (text.empty() || !isValidUtf8(text)) return std::nullopt;
        return text;
    }

    std::optional<std::string> titleReply(xcb_get_property_cookie_t netCookie, xcb_get_property_cookie_t plainCookie) {
        std::optional<std::string> found;
        xcb_ewmh_get_utf8_strings_reply_t utf8;
        if (xcb_ewmh_get_wm_name_reply(&ewmh, netCookie, &utf8, nullptr)) {
            std::string text(utf8.strings, utf8.strings_len);
            xcb_ewmh_get_utf8_strings_reply_wipe(&utf8);
            if (isValidUtf8(text)) found = std::move(text);
        }
        xcb_icccm_get_text_property_reply_t plain;
        if (xcb_icccm_get_wm_name_reply(connection, plainCookie, &plain, nullptr)) {
            if (!found && plain.format == 8) {
                std::string text(plain.name, plain.name_len);
                found = plain.encoding == XCB_ATOM_STRING || !isValidUtf8(text) ? latin1ToUtf8(text) : text;
            }
            xcb_icccm_get_text_property_reply_wipe(&plain);
        }
        return found;
    }

    std::optional<xcb_ewmh_get_extents_reply_t> extents(xcb_get_property_cookie_t cookie) {
        xcb_ewmh_get_extents_reply_t reply;
        if (!xcb_ewmh_get_frame_extents_reply(&ewmh, cookie, &reply, nullptr)) return std::nullopt;
        return reply;
    }

    std::optional<Rect> frameReply(xcb_get_geometry_cookie_t geometryCookie,
                                   xcb_translate_coordinates_cookie_t originCookie,
                                   xcb_get_property_cookie_t extentsCookie) {
        Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(connection, geometryCookie, nullptr));
        Reply<xcb_translate_coordinates_reply_t> origin(
            xcb_translate_coordinates_reply(connection, originCookie, nullptr));
        // Undecorated windows, and window managers that never say, have no frame around them.
        xcb_ewmh_get_extents_reply_t border = extents(extentsCookie).value_or(xcb_ewmh_get_extents_reply_t{});
        if (!geometry || !origin) return std::nullopt;
        return Rect{static_cast<double>(origin->dst_x) - border.left, static_cast<double>(origin->dst_y) - border.top,
                    static_cast<double>(geometry->width) + border.left + border.right,
                    static_cast<double>(geometry->height) + border.top + border.bottom};
    }

    void moveResize(WindowID window, unsigned flags, std::int32_t x, std::int32_t y, double w, double h) {
        // North-west gravity: x and y place the outer corner of the frame. The
        // protocol's fields are unsigned; a frame left of or above the screen's
        // origin travels as its two's complement, which is how it is read back.
        xcb_ewmh_request_moveresize_window(
            &ewmh, screenNumber, window, XCB_GRAVITY_NORTH_WEST, XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER,
            static_cast<xcb_ewmh_moveresize_window_opt_flags_t>(flags), static_cast<std::uint32_t>(x),
            static_cast<std::uint32_t>(y), static_cast<std::uint32_t>(std::round(w)),
            static_cast<std::uint32_t>(std::round(h)));
        flush();
    }

    void setSize(WindowID window, const Size& size) {
        // std::clamp passes a NaN through, and no integer stands for it.
        if (!std::isfinite(size.width) || !std::isfinite(size.height)) return;
        auto border = extents(xcb_ewmh_get_frame_extents(&ewmh, window)).value_or(xcb_ewmh_get_extents_reply_t{});
        // The request sizes the client; the frame adds its extents around it.
        double w = std::clamp(size.width - border.left - border.right, 1.0, 32767.0);
        double h = std::clamp(size.height - border.top - border.bottom, 1.0, 32767.0);
        moveResize(window, XCB_EWMH_MOVERESIZE_WINDOW_WIDTH | XCB_EWMH_MOVERESIZE_WINDOW_HEIGHT, 0, 0, w, h);
    }

    void setPosition(WindowID window, const Point& point) {
        if (!std::isfinite(point.x) || !std::isfinite(point.y)) return;
        auto coordinate = [](double v) {
            return static_cast<std::int32_t>(std::round(std::clamp(v, -32768.0, 32767.0)));
        };
        moveResize(window, XCB_EWMH_MOVERESIZE_WINDOW_X | XCB_EWMH_MOVERESIZE_WINDOW_Y, coordinate(point.x),
                   coordinate(point.y), 0, 0);
    }

    void iconify(WindowID window) {
        xcb_client_message_event_t message{};
        message.response_type = XCB_CLIENT_MESSAGE;
        message.format = 32;
        message.window = window;
        message.type = changeState;
        message.data.data32[0] = XCB_ICCCM_WM_STATE_ICONIC;
        xcb_send_event(connection, 0, root,
                       XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&message));
        flush();
    }

    void activate(WindowID window) {
        // Source "other": a pager's request, which window managers honour
        // without their focus-stealing guard.
        xcb_ewmh_request_change_active_window(&ewmh, screenNumber, window, XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER,
                                              XCB_CURRENT_TIME, XCB_NONE);
        flush();
    }


    // One request for one or two states, as a pager sends it.
    void setStates(WindowID window, const std::vector<xcb_atom_t>& states, bool on) {
        xcb_ewmh_request_change_wm_state(&ewmh, screenNumber, window,
                                         on ? XCB_EWMH_WM_STATE_ADD : XCB_EWMH_WM_STATE_REMOVE, states.at(0),
                                         states.size() > 1 ? states[1] : static_cast<xcb_atom_t>(XCB_ATOM_NONE),
                                         XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER);
        flush();
    }

    void setWorkspace(WindowID window, std::int64_t desktop) {
        if (desktop < -1 || desktop > lastWorkspace) return;
        auto value = desktop < 0 ? 0xFFFFFFFFu : static_cast<std::uint32_t>(desktop);
        xcb_ewmh_request_change_wm_desktop(&ewmh, screenNumber, window, value, XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER);
        flush();
    }

    // A UTF-8 text property of a window.
    std::optional<std::string> utf8Property(WindowID window, xcb_atom_t property) {
        if (property == XCB_ATOM_NONE) return std::nullopt;
        return utf8Reply(xcb_get_property(connection, 0, window, property, ewmh.UTF8_STRING, 0, 1024));
    }
};

Connection::Connection(std::unique_ptr<State> state) : state_(std::move(state)) {}
Connection::~Connection() = default;

std::unique_ptr<Connection> Connection::open(const std::string& display, std::string& why) {
    const char* name = display.empty() ? std::getenv("DISPLAY") : display.c_str();
    if (name == nullptr || *name == '\0') {
        why = "no X display: DISPLAY is not set";
        return nullptr;
    }
    auto state = std::make_unique<State>();
    int screen = 0;
    state->connection = xcb_connect(name, &screen);
    if (xcb_connection_has_error(state->connection)) {
        why = std::string("cannot open the X display ") + name;
        return nullptr;
    }
    state->screenNumber = screen;
    auto roots = xcb_setup_roots_iterator(xcb_get_setup(state->connection));
    for (int i = 0; i < screen && roots.rem > 0; ++i) xcb_screen_next(&roots);
    if (roots.rem <= 0) {
        why = std::string("the X display ") + name + " has no screen " + std::to_string(screen);
        return nullptr;
    }
    state->root = roots.data->root;

    xcb_intern_atom_cookie_t* cookies = xcb_ewmh_init_atoms(state->connection, &state->ewmh);
    auto changeCookie = xcb_intern_atom(state->connection, 0, 15, "WM_CHANGE_STATE");
    auto gtkCookie = xcb_intern_atom(state->connection, 0, 19, "_GTK_APPLICATION_ID");
    state->ewmhReady = xcb_ewmh_init_atoms_replies(&state->ewmh, cookies, nullptr) != 0;
    Reply<xcb_intern_atom_reply_t> change(xcb_intern_atom_reply(state->connection, changeCookie, nullptr));
    if (!state->ewmhReady || !change) {
        why = std::string("the X display ") + name + " did not answer";
        return nullptr;
    }
    state->changeState = change->atom;
    Reply<xcb_intern_atom_reply_t> gtk(xcb_intern_atom_reply(state->connection, gtkCookie, nullptr));
    if (gtk) state->gtkApplicationId = gtk->atom;
    const xcb_query_extension_reply_t* resources = xcb_get_extension_data(state->connection, &xcb_res_id);
    state->resourceExtension = resources != nullptr && resources->present;
    const xcb_query_extension_reply_t* randr = xcb_get_extension_data(state->connection, &xcb_randr_id);
    if (randr != nullptr && randr->present) {
        // Monitors came with RandR 1.5; an older server answers no such request.
        Reply<xcb_randr_query_version_reply_t> version(xcb_randr_query_version_reply(
            state->connection, xcb_randr_query_version(state->connection, 1, 5), nullptr));
        state->randr = version && (version->major_version > 1 || version->minor_version >= 5);
    }
    return std::unique_ptr<Connection>(new Connection(std::move(state)));
}

bool Connection::windowManagerAnswers() { return state_->current()->managerAnswers; }

std::vector<Output> Connection::outputs() { return state_->current()->outputs; }

bool Connection::lost() { return xcb_connection_has_error(state_->connection) != 0; }

std::optional<std::string> Connection::windowManagerName() {
    auto& s = *state_;
    xcb_window_t check = XCB_NONE;
    if (!xcb_ewmh_get_supporting_wm_check_reply(&s.ewmh, xcb_ewmh_get_supporting_wm_check(&s.ewmh, s.root), &check,
                                                nullptr))
        return std::nullopt;
    return s.utf8Property(check, s.ewmh._NET_WM_NAME);
}

std::optional<std::string> Connection::gtkApplicationId(WindowID window) {
    auto facts = state_->factsOf(window);
    return facts ? facts->gtkApplicationId : std::nullopt;
}

std::vector<WindowID> Connection::clientWindows() { return state_->current()->clients; }

std::optional<std::int32_t> Connection::windowPid(WindowID window) {
    if (auto facts = state_->factsOf(window)) return facts->pid;
    return state_->pidOf(window);
}

std::vector<WindowID> Connection::windowsOf(std::int32_t pid) {
    std::vector<WindowID> owned;
    auto pass = state_->current();
    for (WindowID window : pass->clients)
        if (pass->facts.at(window).pid == pid) owned.push_back(window);
    return owned;
}

std::optional<WindowClass> Connection::windowClass(WindowID window) {
    auto facts = state_->factsOf(window);
    return facts ? facts->wmClass : std::nullopt;
}

bool Connection::partOfTheDesktop(WindowID window) {
    auto facts = state_->factsOf(window);
    return facts && facts->desktopPart;
}

std::optional<WindowID> Connection::activeWindow() {
    auto& s = *state_;
    xcb_window_t active = XCB_NONE;
    if (!xcb_ewmh_get_active_window_reply(&s.ewmh, xcb_ewmh_get_active_window(&s.ewmh, s.screenNumber), &active,
                                          nullptr) ||
        active == XCB_NONE)
        return std::nullopt;
    return active;
}

void Connection::activateWindow(WindowID window) {
    state_->forget(window);
    state_->activate(window);
}

bool Connection::minimized(WindowID window) {
    auto facts = state_->factsOf(window);
    if (!facts) return false;
    return std::find(facts->states.begin(), facts->states.end(), state_->ewmh._NET_WM_STATE_HIDDEN) !=
           facts->states.end();
}

Element Connection::application(std::int32_t pid) { return makeElement(pid, 0); }

std::optional<AttrValue> Connection::copyAttribute(const Element& element, const std::string& name) {
    const Target* target = targetOf(element);
    if (target == nullptr) return std::nullopt;
    auto& s = *state_;
    if (target->window == 0) {
        if (name != "AXWindows") return std::nullopt;
        std::vector<Element> windows;
        for (WindowID window : windowsOf(target->pid)) windows.push_back(makeElement(target->pid, window));
        return windows;
    }
    // What the window manager no longer manages has nothing to tell.
    auto facts = s.factsOf(target->window);
    if (!facts) return std::nullopt;
    auto has = [&](xcb_atom_t state) {
        return std::find(facts->states.begin(), facts->states.end(), state) != facts->states.end();
    };
    if (name == "AXSubrole") return facts->subrole;
    if (name == "AXTitle") {
        if (facts->title) return *facts->title;
        return std::nullopt;
    }
    if (name == "AXPosition" || name == "AXSize") {
        if (!facts->frame) return std::nullopt;
        if (name == "AXPosition") return Point{facts->frame->x, facts->frame->y};
        return Size{facts->frame->w, facts->frame->h};
    }
    if (name == "AXMinimized") return has(s.ewmh._NET_WM_STATE_HIDDEN);
    if (name == "AXFullScreen") return has(s.ewmh._NET_WM_STATE_FULLSCREEN);
    if (name == workspaceAttribute) {
        if (facts->workspace) return *facts->workspace;
        return std::nullopt;
    }
    if (name == maximizedHorizontallyAttribute) return has(s.ewmh._NET_WM_STATE_MAXIMIZED_HORZ);
    if (name == maximizedVerticallyAttribute) return has(s.ewmh._NET_WM_STATE_MAXIMIZED_VERT);
    if (name == outputAttribute) {
        if (!facts->frame) return std::nullopt;
        const Rect& r = *facts->frame;
        if (auto output = outputHolding(Frame{r.x, r.y, r.w, r.h}, s.current()->outputs)) return *output;
        return std::nullopt;
    }
    // Documents ("AXDocument") and everything else: X11 has no such property.
    return std::nullopt;
}

void Connection::setAttribute(const Element& element, const std::string& name, const AttrValue& value) {
    const Target* target = targetOf(element);
    if (target == nullptr || target->window == 0) return;
    auto& s = *state_;
    WindowID window = target->window;
    // Whatever the request changes, later questions see it.
    s.forget(window);
    if ((name == "AXSize" || name == "AXPosition") && s.hasState(window, s.ewmh._NET_WM_STATE_FULLSCREEN)) {
        // A full-screen window's frame is the manager's, drawn without borders:
        // a frame written now would be sized by zero extents and be wrong once
        // the window leaves full screen, so it keeps the one it had.
        return;
    }
    if (name == "AXSize") {
        if (auto* size = std::get_if<Size>(&value)) s.setSize(window, *size);
    } else if (name == "AXPosition") {
        if (auto* point = std::get_if<Point>(&value)) s.setPosition(window, *point);
    } else if (name == "AXMinimized") {
        auto* on = std::get_if<bool>(&value);
        if (on == nullptr) return;
        // Window managers ignore a client asking for the hidden state itself;
        // iconifying goes through the ICCCM request, showing through activation.
        if (*on)
            s.iconify(window);
        else
            s.activate(window);
    } else if (name == "AXFullScreen") {
        if (auto* on = std::get_if<bool>(&value)) s.setStates(window, {s.ewmh._NET_WM_STATE_FULLSCREEN}, *on);
    } else if (name == workspaceAttribute) {
        if (auto* desktop = std::get_if<std::int64_t>(&value)) s.setWorkspace(window, *desktop);
    } else if (name == maximizedHorizontallyAttribute || name == maximizedVerticallyAttribute ||
               name == maximizedAttribute) {
        auto* on = std::get_if<bool>(&value);
        if (on == nullptr) return;
        std::vector<xcb_atom_t> states;
        if (name != maximizedVerticallyAttribute) states.push_back(s.ewmh._NET_WM_STATE_MAXIMIZED_HORZ);
        if (name != maximizedHorizontallyAttribute) states.push_back(s.ewmh._NET_WM_STATE_MAXIMIZED_VERT);
        auto settled = [&] {
            for (xcb_atom_t state : states)
                if (s.hasState(window, state) != *on) return false;
            return true;
        };
        if (settled()) return;
        s.setStates(window, states, *on);
        // A frame is written next, sized by the frame extents: a manager that
        // draws maximized windows with other borders must have let go first.
        if (!*on)
            for (int tries = 0; tries < 50 && !settled(); ++tries)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

bool Connection::sameElement(const Element& a, const Element& b) {
    const Target* left = targetOf(a);
    const Target* right = targetOf(b);
    if (left == nullptr || right == nullptr) return false;
    return left->window == right->window && (left->window != 0 || left->pid == right->pid);
}

}  // namespace tarnwick::AXX11
