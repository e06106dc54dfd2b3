// VirtualDisplay and DisplayProbe: Xvfb, openbox, and plain xcb requests.
#include "support/virtual_display.h"

#include "platform/linux/launch.h"

#include <xcb/xcb.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <unistd.h>

namespace tarnwick::testing {

namespace {

[[noreturn]] void fail(const std::string& why) {
    std::fprintf(stderr, "virtual display: %s\n", why.c_str());
    std::abort();
}

struct FreeReply {
    void operator()(void* reply) const { std::free(reply); }
};
template <class T>
using Reply = std::unique_ptr<T, FreeReply>;

// Every program started here dies with the process that started it, also when
// that process is killed outright and cleans nothing up: setpriv sets the
// parent-death signal, then becomes the program (same pid).
ChildProcess startProgram(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<std::string> wrapped{"--pdeathsig", "KILL", "--", programPath(program)};
    wrapped.insert(wrapped.end(), arguments.begin(), arguments.end());
    int error = 0;
    auto child = ChildProcess::start(programPath("setpriv"), wrapped, ChildProcess::Input::inherit,
                                     ChildProcess::ErrorOutput::discard, error);
    if (!child) fail("cannot start " + program + ": " + std::strerror(error));
    return std::move(*child);
}

// Reads the first line a server writes once it accepts connections: Xvfb's
// display number, dbus-daemon's address.
std::optional<std::string> readFirstLine(UniqueFd& output) {
    std::string text;
    char c = 0;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
        ssize_t n = ::read(output.get(), &c, 1);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        if (c == '\n') return text;
        text.push_back(c);
    }
    return std::nullopt;
}

// Asks a program to end, and ends it outright when it has not after a few
// seconds (xfwm4 sometimes lets SIGTERM wait): a test never hangs on a stop.
void stopProgram(ChildProcess& child) {
    ::kill(child.pid(), SIGTERM);
    if (child.waitUntil(std::chrono::steady_clock::now() + std::chrono::seconds(5))) return;
    ::kill(child.pid(), SIGKILL);
    child.wait();
}

}  // namespace

std::string programPath(const std::string& name) {
    if (auto path = Launch::programPath(name)) return *path;
    fail(name + " is not installed; make test installs it");
}

bool eventually(const std::function<bool()>& condition, double seconds) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    for (;;) {
        if (condition()) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

std::string testWindowManager() {
    const char* chosen = std::getenv("TARNWICK_TEST_WINDOW_MANAGER");
    return chosen != nullptr && *chosen != '\0' ? chosen : "openbox";
}

namespace {

// How each window manager the tests know is started on its own display,
// without session management and, for xfwm4, without its compositor.
std::vector<std::string> managerCommand(const std::string& manager) {
    if (manager == "openbox") return {"--sm-disable"};
    if (manager == "xfwm4") return {"--replace", "--sm-client-disable", "--compositor=off"};
    if (manager == "mutter") return {"--x11", "--replace", "--sm-disable"};
    fail("no way known to start the window manager " + manager);
}

}  // namespace

VirtualDisplay::VirtualDisplay(bool windowManager, int width, int height) : width_(width), height_(height) {
    std::string screen = std::to_string(width) + "x" + std::to_string(height) + "x24";
    server_.emplace(startProgram("Xvfb", {"-displayfd", "1", "-screen", "0", screen, "-nolisten", "tcp"}));
    auto number = readFirstLine(server_->output());
    if (!number) abandon("Xvfb did not say which display it opened");
    name_ = ":" + *number;
    ::setenv("DISPLAY", name_.c_str(), 1);
    if (!windowManager) return;
    const std::string manager = testWindowManager();
    manager_.emplace(startProgram(manager, managerCommand(manager)));
    // openbox announces itself before it takes windows, and drops a request to
    // show one that comes in while it starts: ready means a window of ours is
    // managed, asking again until it is.
    DisplayProbe probe;
    if (!eventually([&] { return probe.windowManagerReady(); }, 20.0)) abandon(manager + " did not start on " + name_);
    std::uint32_t canary = probe.createWindow("ready?", DisplayProbe::Kind::normal);
    bool managed = eventually(
        [&] {
            if (eventually([&] { return !probe.clients().empty(); }, 0.2)) return true;
            probe.map(canary);
            return false;
        },
        20.0);
    if (!managed) abandon(manager + " manages no window on " + name_);
    probe.destroyWindow(canary);
    if (!eventually([&] { return probe.clients().empty(); }, 20.0)) abandon(manager + " kept a closed window");
}

VirtualDisplay::~VirtualDisplay() {
    for (ChildProcess& child : programs_) stopProgram(child);
    // Programs a restore started are not ours; they end with the server.
    for (std::optional<ChildProcess>* process : {&manager_, &server_})
        if (*process) stopProgram(**process);
    ::unsetenv("DISPLAY");
}

void VirtualDisplay::abandon(const std::string& why) {
    // The test run stops here; the server and the manager must not outlive it.
    for (std::optional<ChildProcess>* process : {&manager_, &server_})
        if (*process) ::kill((*process)->pid(), SIGKILL);
    fail(why);
}

SessionBus::SessionBus(std::string variable) : variable_(std::move(variable)) {
    if (const char* address = std::getenv(variable_.c_str())) previous_ = address;
    daemon_.emplace(startProgram("dbus-daemon", {"--session", "--nofork", "--print-address=1"}));
    auto address = readFirstLine(daemon_->output());
    if (!address || address->empty()) fail("dbus-daemon did not say where it listens");
    ::setenv(variable_.c_str(), address->c_str(), 1);
}

SessionBus::~SessionBus() {
    if (previous_)
        ::setenv(variable_.c_str(), previous_->c_str(), 1);
    else
        ::unsetenv(variable_.c_str());
    if (daemon_) stopProgram(*daemon_);
}

pid_t VirtualDisplay::start(const std::string& program, const std::vector<std::string>& arguments,
                            const std::string& folder) {
    if (folder.empty()) {
        programs_.push_back(startProgram(program, arguments));
    } else {
        // The shell changes folder and becomes the program: the pid stays.
        std::vector<std::string> words{"-c", "cd \"$0\" && exec \"$@\"", folder, programPath(program)};
        words.insert(words.end(), arguments.begin(), arguments.end());
        programs_.push_back(startProgram("sh", words));
    }
    return programs_.back().pid();
}

void VirtualDisplay::quit(pid_t pid) {
    for (auto it = programs_.begin(); it != programs_.end(); ++it)
        if (it->pid() == pid) {
            stopProgram(*it);
            programs_.erase(it);
            return;
        }
    fail("no program " + std::to_string(pid) + " was started here");
}

struct DisplayProbe::State {
    xcb_connection_t* connection = nullptr;
    xcb_window_t root = 0;

    ~State() {
        if (connection != nullptr) xcb_disconnect(connection);
    }

    xcb_atom_t atom(const char* name) {
        Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
            connection, xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(std::strlen(name)), name),
            nullptr));
        if (!reply) fail(std::string("cannot intern ") + name);
        return reply->atom;
    }

    // A property's 32-bit values.
    std::vector<std::uint32_t> cardinals(xcb_window_t window, const char* name, xcb_atom_t type) {
        Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
            connection, xcb_get_property(connection, 0, window, atom(name), type, 0, 4096), nullptr));
        std::vector<std::uint32_t> values;
        if (!reply || reply->format != 32) return values;
        auto* data = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
        values.assign(data, data + xcb_get_property_value_length(reply.get()) / 4);
        return values;
    }

    void setProperty(xcb_window_t window, const char* name, xcb_atom_t type, std::uint8_t format,
                     const void* data, std::uint32_t count) {
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, atom(name), type, format, count, data);
    }
};

DisplayProbe::DisplayProbe() : state_(std::make_unique<State>()) {
    int screen = 0;
    state_->connection = xcb_connect(nullptr, &screen);
    if (xcb_connection_has_error(state_->connection)) fail("the probe cannot connect");
    auto roots = xcb_setup_roots_iterator(xcb_get_setup(state_->connection));
    for (int i = 0; i < screen; ++i) xcb_screen_next(&roots);
    state_->root = roots.data->root;
}

DisplayProbe::~DisplayProbe() = default;

bool DisplayProbe::windowManagerReady() {
    auto check = state_->cardinals(state_->root, "_NET_SUPPORTING_WM_CHECK", XCB_ATOM_WINDOW);
    // openbox names the check window first and publishes the client list after.
    return !check.empty() && !state_->cardinals(state_->root, "_NET_SUPPORTED", XCB_ATOM_ATOM).empty();
}

std::vector<std::uint32_t> DisplayProbe::clients() {
    return state_->cardinals(state_->root, "_NET_CLIENT_LIST", XCB_ATOM_WINDOW);
}

std::string DisplayProbe::wmClass(std::uint32_t window) {
    Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        state_->connection,
        xcb_get_property(state_->connection, 0, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, 1024), nullptr));
    if (!reply) return "";
    std::string both(static_cast<const char*>(xcb_get_property_value(reply.get())),
                     static_cast<size_t>(xcb_get_property_value_length(reply.get())));
    // "instance\0class\0"
    size_t split = both.find('\0');
    if (split == std::string::npos) return "";
    std::string wmClass = both.substr(split + 1);
    if (!wmClass.empty() && wmClass.back() == '\0') wmClass.pop_back();
    return wmClass;
}

std::vector<std::uint32_t> DisplayProbe::clientsOfClass(const std::string& wmClass) {
    std::vector<std::uint32_t> found;
    for (std::uint32_t window : clients())
        if (this->wmClass(window) == wmClass) found.push_back(window);
    return found;
}

std::vector<std::uint32_t> DisplayProbe::windowsOfClass(const std::string& wmClass) {
    auto* c = state_->connection;
    std::vector<std::uint32_t> found;
    std::vector<xcb_window_t> pending{state_->root};
    for (size_t next = 0; next < pending.size(); ++next) {
        Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(c, xcb_query_tree(c, pending[next]), nullptr));
        if (!tree) continue;
        const xcb_window_t* children = xcb_query_tree_children(tree.get());
        for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i) {
            if (this->wmClass(children[i]) == wmClass) found.push_back(children[i]);
            pending.push_back(children[i]);
        }
    }
    return found;
}

std::optional<Rect> DisplayProbe::onScreen(std::uint32_t window) {
    auto* c = state_->connection;
    Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(c, xcb_get_geometry(c, window), nullptr));
    Reply<xcb_translate_coordinates_reply_t> at(xcb_translate_coordinates_reply(
        c, xcb_translate_coordinates(c, window, state_->root, 0, 0), nullptr));
    if (!geometry || !at) return std::nullopt;
    return Rect{at->dst_x, at->dst_y, geometry->width, geometry->height};
}

bool DisplayProbe::viewable(std::uint32_t window) {
    auto* c = state_->connection;
    Reply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, window), nullptr));
    return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
}

std::vector<std::uint32_t> DisplayProbe::popUps() {
    auto* c = state_->connection;
    std::vector<std::uint32_t> found;
    Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(c, xcb_query_tree(c, state_->root), nullptr));
    if (!tree) return found;
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i) {
        Reply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, children[i]), nullptr));
        if (attributes && attributes->override_redirect && attributes->map_state == XCB_MAP_STATE_VIEWABLE)
            found.push_back(children[i]);
    }
    return found;
}

std::optional<Rect> DisplayProbe::frame(std::uint32_t window) {
    auto* c = state_->connection;
    xcb_window_t outer = window;
    for (;;) {
        Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(c, xcb_query_tree(c, outer), nullptr));
        if (!tree) return std::nullopt;
        if (tree->parent == state_->root || tree->parent == XCB_NONE) break;
        outer = tree->parent;
    }
    Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(c, xcb_get_geometry(c, outer), nullptr));
    if (!geometry) return std::nullopt;
    int border = geometry->border_width;
    return Rect{geometry->x, geometry->y, geometry->width + 2 * border, geometry->height + 2 * border};
}

bool DisplayProbe::hidden(std::uint32_t window) {
    auto states = state_->cardinals(window, "_NET_WM_STATE", XCB_ATOM_ATOM);
    xcb_atom_t wanted = state_->atom("_NET_WM_STATE_HIDDEN");
    return std::find(states.begin(), states.end(), wanted) != states.end();
}

bool DisplayProbe::fullScreen(std::uint32_t window) {
    auto states = state_->cardinals(window, "_NET_WM_STATE", XCB_ATOM_ATOM);
    xcb_atom_t wanted = state_->atom("_NET_WM_STATE_FULLSCREEN");
    return std::find(states.begin(), states.end(), wanted) != states.end();
}

std::string DisplayProbe::windowManagerName() {
    auto check = state_->cardinals(state_->root, "_NET_SUPPORTING_WM_CHECK", XCB_ATOM_WINDOW);
    if (check.empty()) return "";
    auto& s = *state_;
    Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        s.connection, xcb_get_property(s.connection, 0, check.front(), s.atom("_NET_WM_NAME"), s.atom("UTF8_STRING"), 0, 256),
        nullptr));
    if (!reply) return "";
    return std::string(static_cast<const char*>(xcb_get_property_value(reply.get())),
                       static_cast<size_t>(xcb_get_property_value_length(reply.get())));
}

bool DisplayProbe::maximized(std::uint32_t window) {
    auto states = state_->cardinals(window, "_NET_WM_STATE", XCB_ATOM_ATOM);
    auto has = [&](const char* name) { return std::find(states.begin(), states.end(), state_->atom(name)) != states.end(); };
    return has("_NET_WM_STATE_MAXIMIZED_VERT") && has("_NET_WM_STATE_MAXIMIZED_HORZ");
}

std::optional<std::uint32_t> DisplayProbe::workspace(std::uint32_t window) {
    auto values = state_->cardinals(window, "_NET_WM_DESKTOP", XCB_ATOM_CARDINAL);
    if (values.empty()) return std::nullopt;
    return values.front();
}

std::optional<std::uint32_t> DisplayProbe::pid(std::uint32_t window) {
    auto values = state_->cardinals(window, "_NET_WM_PID", XCB_ATOM_CARDINAL);
    if (values.empty()) return std::nullopt;
    return values.front();
}

namespace {

// A client message to the root window, as pagers send them.
void askWindowManager(xcb_connection_t* connection, xcb_window_t root, xcb_window_t window, xcb_atom_t type,
                      std::uint32_t a, std::uint32_t b, std::uint32_t c) {
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window;
    message.type = type;
    message.data.data32[0] = a;
    message.data.data32[1] = b;
    message.data.data32[2] = c;
    message.data.data32[3] = 2;  // source: a pager
    xcb_send_event(connection, 0, root, XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&message));
    xcb_flush(connection);
}

}  // namespace

void DisplayProbe::requestWorkspace(std::uint32_t window, std::uint32_t desktop) {
    auto& s = *state_;
    askWindowManager(s.connection, s.root, window, s.atom("_NET_WM_DESKTOP"), desktop, 2, 0);
}

void DisplayProbe::requestMaximized(std::uint32_t window, bool on) {
    auto& s = *state_;
    askWindowManager(s.connection, s.root, window, s.atom("_NET_WM_STATE"), on ? 1 : 0,
                     s.atom("_NET_WM_STATE_MAXIMIZED_VERT"), s.atom("_NET_WM_STATE_MAXIMIZED_HORZ"));
}

void DisplayProbe::requestFullScreen(std::uint32_t window, bool on) {
    auto& s = *state_;
    askWindowManager(s.connection, s.root, window, s.atom("_NET_WM_STATE"), on ? 1 : 0,
                     s.atom("_NET_WM_STATE_FULLSCREEN"), 0);
}

void DisplayProbe::requestIconify(std::uint32_t window) {
    auto& s = *state_;
    askWindowManager(s.connection, s.root, window, s.atom("WM_CHANGE_STATE"), 3 /* IconicState */, 0, 0);
}

void DisplayProbe::requestActivate(std::uint32_t window) {
    auto& s = *state_;
    askWindowManager(s.connection, s.root, window, s.atom("_NET_ACTIVE_WINDOW"), 2 /* a pager */, 0, 0);
}

void DisplayProbe::configure(std::uint32_t window, int x, int y, unsigned w, unsigned h) {
    const std::uint32_t values[] = {static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y), w, h};
    xcb_configure_window(state_->connection, window,
                         XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH |
                             XCB_CONFIG_WINDOW_HEIGHT,
                         values);
    flush();
}

void DisplayProbe::map(std::uint32_t window) {
    xcb_map_window(state_->connection, window);
    flush();
}

std::uint32_t DisplayProbe::createWindow(const std::string& title, Kind kind, std::uint32_t transientFor,
                                         bool legacyTitle) {
    auto& s = *state_;
    xcb_window_t window = xcb_generate_id(s.connection);
    auto roots = xcb_setup_roots_iterator(xcb_get_setup(s.connection));
    xcb_create_window(s.connection, XCB_COPY_FROM_PARENT, window, s.root, 50, 50, 300, 200, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, roots.data->root_visual, 0, nullptr);
    auto pid = static_cast<std::uint32_t>(::getpid());
    s.setProperty(window, "_NET_WM_PID", XCB_ATOM_CARDINAL, 32, &pid, 1);
    static const char wmClass[] = "probe\0Probe";
    s.setProperty(window, "WM_CLASS", XCB_ATOM_STRING, 8, wmClass, sizeof wmClass);
    auto length = static_cast<std::uint32_t>(title.size());
    s.setProperty(window, "WM_NAME", XCB_ATOM_STRING, 8, title.data(), length);
    if (!legacyTitle) s.setProperty(window, "_NET_WM_NAME", s.atom("UTF8_STRING"), 8, title.data(), length);
    if (kind != Kind::untyped) {
        const char* name = kind == Kind::dialog ? "_NET_WM_WINDOW_TYPE_DIALOG"
                           : kind == Kind::dock ? "_NET_WM_WINDOW_TYPE_DOCK"
                                                : "_NET_WM_WINDOW_TYPE_NORMAL";
        xcb_atom_t type = s.atom(name);
        s.setProperty(window, "_NET_WM_WINDOW_TYPE", XCB_ATOM_ATOM, 32, &type, 1);
    }
    if (kind == Kind::transient) s.setProperty(window, "WM_TRANSIENT_FOR", XCB_ATOM_WINDOW, 32, &transientFor, 1);
    xcb_map_window(s.connection, window);
    flush();
    return window;
}

void DisplayProbe::destroyWindow(std::uint32_t window) {
    xcb_destroy_window(state_->connection, window);
    flush();
}

void DisplayProbe::flush() { xcb_flush(state_->connection); }

}  // namespace tarnwick::testing
