// KWinSession: dbus-daemon, a copy of kwin_wayland, and gdbus as the probe.
#include "support/kwin_session.h"

#include "platform/linux/launch.h"
#include "support/process_group.h"
#include "support/temp_dir.h"

#include <simdjson.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace tarnwick::testing {

namespace {

using Clock = std::chrono::steady_clock;

std::optional<std::string> pathOf(const std::string& name) { return Launch::programPath(name); }

std::string readAll(UniqueFd& fd) {
    std::string text;
    char buffer[4096];
    for (;;) {
        ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return text;
        text.append(buffer, static_cast<size_t>(n));
    }
}

std::string fileText(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The X display of the XWayland that KWin started: its child's ":N" argument.
std::optional<std::string> xwaylandDisplay(pid_t kwin) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        std::string stat = fileText(entry.path() / "stat");
        size_t close = stat.rfind(')');
        if (close == std::string::npos) continue;
        std::istringstream fields(stat.substr(close + 2));
        std::string state;
        long parent = 0;
        fields >> state >> parent;
        if (parent != kwin) continue;
        std::string cmdline = fileText(entry.path() / "cmdline");
        if (cmdline.find("Xwayland") == std::string::npos) continue;
        for (size_t at = 0; at < cmdline.size(); at = cmdline.find('\0', at) + 1) {
            std::string word = cmdline.substr(at, cmdline.find('\0', at) - at);
            if (!word.empty() && word[0] == ':') return word;
            if (cmdline.find('\0', at) == std::string::npos) break;
        }
    }
    return std::nullopt;
}

// The value gdbus prints for `key` in a{sv}: "'key': <value>".
std::optional<std::string> field(const std::string& printed, const std::string& key) {
    std::string marker = "'" + key + "': <";
    size_t at = printed.find(marker);
    if (at == std::string::npos) return std::nullopt;
    at += marker.size();
    size_t end = printed.find('>', at);
    if (end == std::string::npos) return std::nullopt;
    std::string value = printed.substr(at, end - at);
    if (value.size() >= 2 && value.front() == '\'' && value.back() == '\'') value = value.substr(1, value.size() - 2);
    return value;
}

}  // namespace

KWinSession::KWinSession(int outputs, int desktops, int width, int height) {
    auto installed = pathOf("kwin_wayland");
    if (!installed) {
        whyNot_ = "kwin_wayland is not installed";
        return;
    }
    for (const char* needed : {"dbus-daemon", "gdbus", "Xwayland"})
        if (!pathOf(needed)) {
            whyNot_ = std::string(needed) + " is not installed";
            return;
        }
    folder_ = std::make_unique<TempDir>("tarnwick-kwin");
    const auto& base = folder_->path();
    // HACK: the installed kwin_wayland carries the file capability
    // cap_sys_resource, which a container may refuse to grant ("Operation not
    // permitted"); a copy carries none. It keeps its name: KWin's own Qt
    // platform plugin loads only into a program called kwin_wayland.
    std::error_code error;
    std::filesystem::create_directories(base / "bin", error);
    std::filesystem::copy_file(*installed, base / "bin" / "kwin_wayland", error);
    std::filesystem::create_directories(base / "runtime", error);
    ::chmod((base / "runtime").c_str(), 0700);
    std::filesystem::create_directories(base / "config", error);
    // A configuration of its own: the host's never leaks in.
    std::ofstream(base / "config" / "kwinrc") << "[Desktops]\nNumber=" << desktops << "\nRows=1\n";

    auto remember = [this](const char* name, const std::string& value) {
        const char* before = std::getenv(name);
        previous_[name] = before ? std::optional<std::string>(before) : std::nullopt;
        ::setenv(name, value.c_str(), 1);
    };
    remember("XDG_RUNTIME_DIR", (base / "runtime").string());
    remember("XDG_CONFIG_HOME", (base / "config").string());

    std::string why;
    if (auto daemon = startGroup({*pathOf("dbus-daemon"), "--session", "--nofork", "--print-address=1"}, why))
        daemon_.emplace(std::move(*daemon));
    auto address = daemon_ ? firstLine(daemon_->output()) : std::nullopt;
    if (!address || address->empty()) {
        whyNot_ = "dbus-daemon did not start: " + why;
        return;
    }
    bus_ = *address;
    remember("DBUS_SESSION_BUS_ADDRESS", bus_);

    wayland_ = "tarnwick-kwin-" + std::to_string(::getpid());
    const std::filesystem::path log = base / "kwin.log";
    // Screenshots for the tests that look at what the desktop shows: KWin
    // otherwise answers them only for programs whose desktop entry it trusts.
    auto kwin = startGroup({*pathOf("env"), "KWIN_SCREENSHOT_NO_PERMISSION_CHECKS=1", *pathOf("sh"), "-c",
                            "log=$1; shift; exec \"$@\" >\"$log\" 2>&1", "sh", log.string(),
                            (base / "bin" / "kwin_wayland").string(), "--virtual", "--width", std::to_string(width),
                            "--height", std::to_string(height), "--output-count", std::to_string(outputs), "--socket",
                            wayland_, "--xwayland", "--no-lockscreen", "--no-global-shortcuts", "--no-kactivities"},
                           why);
    if (!kwin) {
        whyNot_ = why;
        return;
    }
    kwin_.emplace(std::move(*kwin));
    auto deadline = Clock::now() + std::chrono::seconds(20);
    for (;;) {
        if (kwin_->waitUntil(Clock::now())) {
            std::string text = fileText(log);
            size_t lastLine = text.find_last_of('\n', text.size() > 1 ? text.size() - 2 : 0);
            whyNot_ = "kwin_wayland exited at start: " +
                      (lastLine == std::string::npos ? text : text.substr(lastLine + 1));
            if (!whyNot_.empty() && whyNot_.back() == '\n') whyNot_.pop_back();
            kwin_.reset();
            return;
        }
        bool socket = std::filesystem::exists(base / "runtime" / wayland_, error);
        auto owner = socket ? call({"call", "--session", "--dest", "org.freedesktop.DBus", "--object-path",
                                    "/org/freedesktop/DBus", "--method", "org.freedesktop.DBus.NameHasOwner",
                                    "org.kde.KWin"})
                            : std::nullopt;
        auto display = owner && owner->find("true") != std::string::npos ? xwaylandDisplay(kwin_->pid())
                                                                         : std::nullopt;
        if (display) {
            x11_ = *display;
            break;
        }
        if (Clock::now() > deadline) {
            whyNot_ = "KWin did not answer on D-Bus with XWayland within 20 s";
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    remember("WAYLAND_DISPLAY", wayland_);
    remember("DISPLAY", x11_);
}

KWinSession::~KWinSession() {
    for (ChildProcess& child : programs_) stopGroup(child);
    // And what was started on it by others (a restore), which is no child of ours.
    if (!wayland_.empty()) endProgramsOn(wayland_);
    if (kwin_) stopGroup(*kwin_);
    if (daemon_) stopGroup(*daemon_);
    for (const auto& [name, value] : previous_) {
        if (value)
            ::setenv(name.c_str(), value->c_str(), 1);
        else
            ::unsetenv(name.c_str());
    }
}

pid_t KWinSession::start(const std::string& program, const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment) {
    auto path = pathOf(program);
    if (!path) {
        std::fprintf(stderr, "kwin session: %s is not installed; make test installs it\n", program.c_str());
        std::abort();
    }
    std::vector<std::string> command{*pathOf("env")};
    command.insert(command.end(), environment.begin(), environment.end());
    command.push_back(*path);
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::string why;
    auto child = startGroup(command, why);
    if (!child) {
        std::fprintf(stderr, "kwin session: %s\n", why.c_str());
        std::abort();
    }
    programs_.push_back(std::move(*child));
    return programs_.back().pid();
}

std::vector<pid_t> KWinSession::programs() const {
    std::vector<pid_t> pids;
    for (const ChildProcess& program : programs_) pids.push_back(program.pid());
    return pids;
}

void KWinSession::quit(pid_t pid) {
    for (auto it = programs_.begin(); it != programs_.end(); ++it)
        if (it->pid() == pid) {
            stopGroup(*it);
            programs_.erase(it);
            return;
        }
}

std::optional<std::string> KWinSession::call(const std::vector<std::string>& arguments) {
    auto gdbus = pathOf("gdbus");
    int error = 0;
    auto child = ChildProcess::start(*gdbus, arguments, ChildProcess::Input::inherit,
                                     ChildProcess::ErrorOutput::discard, error);
    if (!child) return std::nullopt;
    std::string text = readAll(child->output());
    int status = child->wait();
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
    return text;
}

void KWinSession::script(const std::string& source) {
    if (!running()) return;
    scripts_ += 1;
    std::string name = "tarnwick-probe-" + std::to_string(scripts_);
    std::filesystem::path file = folder_->path() / (name + ".js");
    std::filesystem::path log = folder_->path() / "kwin.log";
    // The script says when it has run into KWin's output, which we keep.
    std::ofstream(file) << source << "\nprint(\"" << name << " ran\");\n";
    auto loaded = call({"call", "--session", "--dest", "org.kde.KWin", "--object-path", "/Scripting", "--method",
                        "org.kde.kwin.Scripting.loadScript", file.string(), name});
    if (!loaded) return;
    std::string id;
    for (char c : *loaded)
        if (c >= '0' && c <= '9') id.push_back(c);
    call({"call", "--session", "--dest", "org.kde.KWin", "--object-path", "/" + id, "--method",
          "org.kde.kwin.Script.run"});
    auto deadline = Clock::now() + std::chrono::seconds(10);
    while (fileText(log).find(name + " ran") == std::string::npos && Clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    call({"call", "--session", "--dest", "org.kde.KWin", "--object-path", "/Scripting", "--method",
          "org.kde.kwin.Scripting.unloadScript", name});
}

std::optional<KWinWindow> KWinSession::info(const std::string& id) {
    auto printed = call({"call", "--session", "--dest", "org.kde.KWin", "--object-path", "/KWin", "--method",
                         "org.kde.KWin.getWindowInfo", id});
    if (!printed) return std::nullopt;
    auto number = [&](const char* key) { return std::atof(field(*printed, key).value_or("0").c_str()); };
    auto flag = [&](const char* key) {
        // Booleans, or a maximized axis as its bit of KWin's MaximizeMode (1 vertical, 2 horizontal).
        auto value = field(*printed, key).value_or("false");
        return value == "true" || std::atoi(value.c_str()) != 0;
    };
    KWinWindow window;
    window.id = id;
    window.caption = field(*printed, "caption").value_or("");
    window.resourceClass = field(*printed, "resourceClass").value_or("");
    window.x = number("x");
    window.y = number("y");
    window.width = number("width");
    window.height = number("height");
    window.minimized = flag("minimized");
    window.fullScreen = flag("fullscreen");
    window.maximizedHorizontally = flag("maximizeHorizontal");
    window.maximizedVertically = flag("maximizeVertical");
    return window;
}

std::vector<KWinWindow> KWinSession::windows() {
    std::vector<KWinWindow> found;
    if (!running()) return found;
    std::filesystem::path log = folder_->path() / "kwin.log";
    std::string marker = "tarnwick-listing-" + std::to_string(scripts_ + 1) + " ";
    script("var l = workspace.clientList(), o = [];\n"
           "for (var i = 0; i < l.length; ++i) o.push({id: String(l[i].internalId), pid: l[i].pid, desktop: "
           "l[i].desktop});\n"
           "print(\"" + marker + "\" + JSON.stringify(o));\n");
    std::string text = fileText(log);
    size_t at = text.rfind(marker);
    if (at == std::string::npos) return found;
    at += marker.size();
    std::string line = text.substr(at, text.find('\n', at) - at);
    simdjson::dom::parser parser;
    simdjson::dom::array listed;
    if (parser.parse(line).get(listed)) return found;
    for (simdjson::dom::element item : listed) {
        std::string_view id;
        if (item["id"].get(id)) continue;
        auto window = info(std::string(id));
        if (!window) continue;
        std::int64_t pid = 0, desktop = 0;
        if (item["pid"].get(pid)) pid = 0;
        if (item["desktop"].get(desktop)) desktop = 0;
        window->pid = static_cast<std::int32_t>(pid);
        window->desktop = desktop;
        found.push_back(std::move(*window));
    }
    return found;
}

}  // namespace tarnwick::testing
