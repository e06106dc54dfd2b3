// The X11 window half: EWMH properties and client messages over xcb.
#include "access/axo_x11.h"

#include "access/axo.h"
#include "model/utf8.h"

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

struct Connection::State {
    xcb_connection_t* connection = nullptr;
    xcb_ewmh_connection_t ewmh{};
    bool ewmhReady = false;
    int screenNumber = 0;
    xcb_window_t root = 0;
    xcb_atom_t changeState = XCB_ATOM_NONE;  // WM_CHANGE_STATE, the ICCCM iconify request
    xcb_atom_t gtkApplicationId = XCB_ATOM_NONE;  // _GTK_APPLICATION_ID
    bool resourceExtension = false;          // X-Resource, for the pid of a client that never says

    std::mutex pidLock;
    std::map<WindowID, std::int32_t> pids;  // a window's owner never changes while it exists

    ~State() {
        if (ewmhReady) xcb_ewmh_connection_wipe(&ewmh);
        if (connection != nullptr) xcb_disconnect(connection);
    }

    void flush() { xcb_flush(connection); }

    std::optional<std::int32_t> pidFromResources(WindowID window) {
        if (!resourceExtension) return std::nullopt;
        xcb_res_client_id_spec_t spec{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
        Reply<xcb_res_query_client_ids_reply_t> reply(
            xcb_res_query_client_ids_reply(connection, xcb_res_query_client_ids(connection, 1, &spec), nullptr));
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
            auto found = pids.find(window);
            if (found != pids.end()) return found->second;
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
            pids[window] = *pid;
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

    // The first window type the client lists that we know, as the window
    // manager reads it; nothing when it lists none.
    std::optional<xcb_atom_t> windowType(WindowID window) {
        const xcb_atom_t known[] = {
            ewmh._NET_WM_WINDOW_TYPE_NORMAL,  ewmh._NET_WM_WINDOW_TYPE_DIALOG,  ewmh._NET_WM_WINDOW_TYPE_DESKTOP,
            ewmh._NET_WM_WINDOW_TYPE_DOCK,    ewmh._NET_WM_WINDOW_TYPE_TOOLBAR, ewmh._NET_WM_WINDOW_TYPE_MENU,
            ewmh._NET_WM_WINDOW_TYPE_UTILITY, ewmh._NET_WM_WINDOW_TYPE_SPLASH,
        };
        for (xcb_atom_t listed : atoms(xcb_ewmh_get_wm_window_type(&ewmh, window)))
            if (std::find(std::begin(known), std::end(known), listed) != std::end(known)) return listed;
        return std::nullopt;
    }

    // Normal windows that are not transient for another are the ones a user
    // arranges; dialogs, menus, docks and the like come and go with them.
    std::string subrole(WindowID window) {
        auto transientCookie = xcb_icccm_get_wm_transient_for(connection, window);
        auto type = windowType(window);
        xcb_window_t owner = XCB_NONE;
        bool transient = xcb_icccm_get_wm_transient_for_reply(connection, transientCookie, &owner, nullptr) &&
                         owner != XCB_NONE;
        if (type == ewmh._NET_WM_WINDOW_TYPE_DIALOG || (!type && transient)) return "AXDialog";
        if (type && type != ewmh._NET_WM_WINDOW_TYPE_NORMAL) return "AXUnknown";
        return transient ? "AXDialog" : "AXStandardWindow";
    }

    std::optional<std::string> title(WindowID window) {
        auto netCookie = xcb_ewmh_get_wm_name(&ewmh, window);
        auto plainCookie = xcb_icccm_get_wm_name(connection, window);
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

    // All three questions go out before the first answer is awaited.
    std::optional<Rect> frame(WindowID window) {
        auto geometryCookie = xcb_get_geometry(connection, window);
        auto originCookie = xcb_translate_coordinates(connection, window, root, 0, 0);
        auto extentsCookie = xcb_ewmh_get_frame_extents(&ewmh, window);
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
        auto border = extents(xcb_ewmh_get_frame_extents(&ewmh, window)).value_or(xcb_ewmh_get_extents_reply_t{});
        // The request sizes the client; the frame adds its extents around it.
        double w = std::clamp(size.width - border.left - border.right, 1.0, 32767.0);
        double h = std::clamp(size.height - border.top - border.bottom, 1.0, 32767.0);
        moveResize(window, XCB_EWMH_MOVERESIZE_WINDOW_WIDTH | XCB_EWMH_MOVERESIZE_WINDOW_HEIGHT, 0, 0, w, h);
    }

    void setPosition(WindowID window, const Point& point) {
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

    void setState(WindowID window, xcb_atom_t state, bool on) {
        xcb_ewmh_request_change_wm_state(&ewmh, screenNumber, window,
                                         on ? XCB_EWMH_WM_STATE_ADD : XCB_EWMH_WM_STATE_REMOVE, state, XCB_ATOM_NONE,
                                         XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER);
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

    // The workspace, or -1 when the window shows on all of them.
    std::optional<std::int64_t> workspace(WindowID window) {
        std::uint32_t desktop = 0;
        if (!xcb_ewmh_get_wm_desktop_reply(&ewmh, xcb_ewmh_get_wm_desktop(&ewmh, window), &desktop, nullptr))
            return std::nullopt;
        if (desktop == 0xFFFFFFFF) return -1;
        return desktop;
    }

    void setWorkspace(WindowID window, std::int64_t desktop) {
        if (desktop < -1 || desktop > 0xFFFF) return;
        auto value = desktop < 0 ? 0xFFFFFFFFu : static_cast<std::uint32_t>(desktop);
        xcb_ewmh_request_change_wm_desktop(&ewmh, screenNumber, window, value, XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER);
        flush();
    }

    // A UTF-8 text property of a window.
    std::optional<std::string> utf8Property(WindowID window, xcb_atom_t property) {
        if (property == XCB_ATOM_NONE) return std::nullopt;
        Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
            connection, xcb_get_property(connection, 0, window, property, ewmh.UTF8_STRING, 0, 1024), nullptr));
        if (!reply || reply->format != 8 || reply->type != ewmh.UTF8_STRING) return std::nullopt;
        std::string text(static_cast<const char*>(xcb_get_property_value(reply.get())),
                         static_cast<size_t>(xcb_get_property_value_length(reply.get())));
        if (text.empty() || !isValidUtf8(text)) return std::nullopt;
        return text;
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
    return std::unique_ptr<Connection>(new Connection(std::move(state)));
}

bool Connection::windowManagerAnswers() {
    auto& s = *state_;
    // The manager names a child window on the root, and that window names itself.
    xcb_window_t check = XCB_NONE;
    if (!xcb_ewmh_get_supporting_wm_check_reply(&s.ewmh, xcb_ewmh_get_supporting_wm_check(&s.ewmh, s.root), &check,
                                                nullptr))
        return false;
    xcb_window_t self = XCB_NONE;
    return xcb_ewmh_get_supporting_wm_check_reply(&s.ewmh, xcb_ewmh_get_supporting_wm_check(&s.ewmh, check), &self,
                                                  nullptr) &&
           self == check;
}

std::optional<std::string> Connection::windowManagerName() {
    auto& s = *state_;
    xcb_window_t check = XCB_NONE;
    if (!xcb_ewmh_get_supporting_wm_check_reply(&s.ewmh, xcb_ewmh_get_supporting_wm_check(&s.ewmh, s.root), &check,
                                                nullptr))
        return std::nullopt;
    return s.utf8Property(check, s.ewmh._NET_WM_NAME);
}

std::optional<std::string> Connection::gtkApplicationId(WindowID window) {
    return state_->utf8Property(window, state_->gtkApplicationId);
}

std::vector<WindowID> Connection::clientWindows() { return state_->clients(); }

std::optional<std::int32_t> Connection::windowPid(WindowID window) { return state_->pidOf(window); }

std::vector<WindowID> Connection::windowsOf(std::int32_t pid) {
    std::vector<WindowID> owned;
    for (WindowID window : state_->clients())
        if (state_->pidOf(window) == pid) owned.push_back(window);
    return owned;
}

std::optional<WindowClass> Connection::windowClass(WindowID window) {
    auto& s = *state_;
    xcb_icccm_get_wm_class_reply_t reply;
    if (!xcb_icccm_get_wm_class_reply(s.connection, xcb_icccm_get_wm_class(s.connection, window), &reply, nullptr))
        return std::nullopt;
    WindowClass found{reply.instance_name ? reply.instance_name : "", reply.class_name ? reply.class_name : ""};
    xcb_icccm_get_wm_class_reply_wipe(&reply);
    return found;
}

bool Connection::partOfTheDesktop(WindowID window) {
    auto& s = *state_;
    auto type = s.windowType(window);
    return type == s.ewmh._NET_WM_WINDOW_TYPE_DOCK || type == s.ewmh._NET_WM_WINDOW_TYPE_DESKTOP;
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

void Connection::activateWindow(WindowID window) { state_->activate(window); }

bool Connection::minimized(WindowID window) { return state_->hasState(window, state_->ewmh._NET_WM_STATE_HIDDEN); }

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
    WindowID window = target->window;
    if (name == "AXSubrole") return s.subrole(window);
    if (name == "AXTitle") {
        if (auto text = s.title(window)) return *text;
        return std::nullopt;
    }
    if (name == "AXPosition" || name == "AXSize") {
        auto rect = s.frame(window);
        if (!rect) return std::nullopt;
        if (name == "AXPosition") return Point{rect->x, rect->y};
        return Size{rect->w, rect->h};
    }
    if (name == "AXMinimized") return s.hasState(window, s.ewmh._NET_WM_STATE_HIDDEN);
    if (name == "AXFullScreen") return s.hasState(window, s.ewmh._NET_WM_STATE_FULLSCREEN);
    if (name == AXO::workspaceAttribute) {
        if (auto desktop = s.workspace(window)) return *desktop;
        return std::nullopt;
    }
    if (name == AXO::maximizedHorizontallyAttribute) return s.hasState(window, s.ewmh._NET_WM_STATE_MAXIMIZED_HORZ);
    if (name == AXO::maximizedVerticallyAttribute) return s.hasState(window, s.ewmh._NET_WM_STATE_MAXIMIZED_VERT);
    // Documents ("AXDocument") and everything else: X11 has no such property.
    return std::nullopt;
}

void Connection::setAttribute(const Element& element, const std::string& name, const AttrValue& value) {
    const Target* target = targetOf(element);
    if (target == nullptr || target->window == 0) return;
    auto& s = *state_;
    WindowID window = target->window;
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
        if (auto* on = std::get_if<bool>(&value)) s.setState(window, s.ewmh._NET_WM_STATE_FULLSCREEN, *on);
    } else if (name == AXO::workspaceAttribute) {
        if (auto* desktop = std::get_if<std::int64_t>(&value)) s.setWorkspace(window, *desktop);
    } else if (name == AXO::maximizedHorizontallyAttribute || name == AXO::maximizedVerticallyAttribute ||
               name == AXO::maximizedAttribute) {
        auto* on = std::get_if<bool>(&value);
        if (on == nullptr) return;
        std::vector<xcb_atom_t> states;
        if (name != AXO::maximizedVerticallyAttribute) states.push_back(s.ewmh._NET_WM_STATE_MAXIMIZED_HORZ);
        if (name != AXO::maximizedHorizontallyAttribute) states.push_back(s.ewmh._NET_WM_STATE_MAXIMIZED_VERT);
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
