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

// The X display KWin serves XWayland on: the one whose lock file names KWin's
// pid. KWin makes the display's sockets and lock itself, before XWayland runs
// (KWin 6 starts XWayland only when the first X11 program connects).
std::optional<std::string> xDisplayOf(pid_t kwin) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/tmp", error)) {
        std::string name = entry.path().filename().string();
        if (name.size() < 8 || name.rfind(".X", 0) != 0 || name.substr(name.size() - 5) != "-lock") continue;
        std::string number = name.substr(2, name.size() - 7);
        if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos) continue;
        if (std::atol(fileText(entry.path()).c_str()) == kwin) return ":" + number;
    }
    return std::nullopt;
}

// What the KWin of a build needs, and what is missing of it (empty when nothing).
std::string missingFor(KWinBuild build) {
    for (const char* needed : {"dbus-daemon", "gdbus"})
        if (!pathOf(needed)) return std::string(needed) + " is not installed";
    if (build == KWinBuild::installed) {
        if (!pathOf("kwin_wayland")) return "kwin_wayland is not installed";
        if (!pathOf("Xwayland")) return "Xwayland is not installed";
        return "";
    }
    std::error_code error;
    const auto root = debian13Root();
    if (!std::filesystem::exists(root / ".tarnwick-complete", error))
        return "no Debian 13 root at " + root.string() + " (tools/make-debian13-root makes it)";
    if (::geteuid() != 0) return "KWin from the Debian 13 root needs root (unshare -m, mount, chroot)";
    if (std::filesystem::temp_directory_path(error) != "/tmp")
        return "KWin from the Debian 13 root sees the machine's /tmp only, and TMPDIR names another folder";
    for (const char* needed : {"unshare", "chroot", "mount"})
        if (!pathOf(needed)) return std::string(needed) + " is not installed";
    return "";
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

// KWin 5.27 and 6 name some things differently; the scripts run here use
// these few names for what differs.
constexpr const char* scriptPrelude =
    "function kwinWindows() {\n"
    "  return typeof workspace.windowList === \"function\" ? workspace.windowList() : workspace.clientList();\n"
    "}\n"
    // KWin 6 keeps a list of desktop objects where 5.27 kept one number.
    "function desktopOf(c) {\n"
    "  if (typeof c.desktop === \"number\") return c.desktop;\n"
    "  if (c.onAllDesktops) return -1;\n"
    "  return c.desktops && c.desktops.length > 0 ? c.desktops[0].x11DesktopNumber : 0;\n"
    "}\n"
    "function moveToDesktop(c, number) {\n"
    "  if (typeof c.desktop === \"number\") { c.desktop = number; return; }\n"
    "  if (number === -1) { c.onAllDesktops = true; return; }\n"
    "  var all = workspace.desktops;\n"
    "  for (var i = 0; i < all.length; ++i) if (all[i].x11DesktopNumber === number) c.desktops = [all[i]];\n"
    "}\n"
    // KWin 6's current desktop is one of those objects too.
    "function showDesktop(number) {\n"
    "  if (typeof workspace.currentDesktop === \"number\") { workspace.currentDesktop = number; return; }\n"
    "  var all = workspace.desktops;\n"
    "  for (var i = 0; i < all.length; ++i)\n"
    "    if (all[i].x11DesktopNumber === number) workspace.currentDesktop = all[i];\n"
    "}\n";

}  // namespace

const char* nameOf(KWinBuild build) { return build == KWinBuild::installed ? "installed" : "debian13"; }

void PrintTo(KWinBuild build, std::ostream* out) { *out << nameOf(build); }

std::filesystem::path debian13Root() {
    const char* chosen = std::getenv("TARNWICK_DEBIAN13_ROOT");
    return chosen && *chosen ? std::filesystem::path(chosen)
                             : std::filesystem::path("/var/cache/tarnwick/debian13-root");
}

KWinSession::KWinSession(KWinBuild build, int outputs, int desktops, int width, int height) {
    whyNot_ = missingFor(build);
    if (!whyNot_.empty()) return;
    const auto root = debian13Root();
    folder_ = std::make_unique<TempDir>("tarnwick-kwin");
    const auto& base = folder_->path();
    // HACK: the installed kwin_wayland carries the file capability
    // cap_sys_resource, which a container may refuse to grant ("Operation not
    // permitted"); a copy carries none. It keeps its name: KWin's own Qt
    // platform plugin loads only into a program called kwin_wayland. The
    // Debian 13 root's copy is run inside that root, where /tmp is ours.
    std::error_code error;
    std::filesystem::create_directories(base / "bin", error);
    std::filesystem::copy_file(build == KWinBuild::installed ? std::filesystem::path(*pathOf("kwin_wayland"))
                                                             : root / "usr" / "bin" / "kwin_wayland",
                               base / "bin" / "kwin_wayland", error);
    if (error) {
        whyNot_ = "cannot copy kwin_wayland: " + error.message();
        return;
    }
    std::filesystem::create_directories(base / "runtime", error);
    ::chmod((base / "runtime").c_str(), 0700);
    std::filesystem::create_directories(base / "config", error);
    // KWin's own state and caches go here, not to a home folder of the machine or the root.
    std::filesystem::create_directories(base / "home", error);
    // A configuration of its own: the host's never leaks in.
    std::ofstream(base / "config" / "kwinrc") << "[Desktops]\nNumber=" << desktops << "\nRows=1\n";

    auto remember = [this](const char* name, const std::string& value) {
        const char* before = std::getenv(name);
        previous_[name] = before ? std::optional<std::string>(before) : std::nullopt;
        ::setenv(name, value.c_str(), 1);
    };
    remember("XDG_RUNTIME_DIR", (base / "runtime").string());
    remember("XDG_CONFIG_HOME", (base / "config").string());
    // The programs' window titles are compared in English, whatever the host speaks.
    remember("LC_ALL", "C.UTF-8");
    remember("LANGUAGE", "");

    // The bus listens on a socket in our folder, which the Debian 13 root's
    // KWin sees at the same path.
    std::string why;
    if (auto daemon = startGroup({*pathOf("dbus-daemon"), "--session", "--nofork", "--print-address=1",
                                  "--address=unix:path=" + (base / "bus").string()},
                                 why))
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
    std::vector<std::string> command;
    if (build == KWinBuild::installed) {
        command = {*pathOf("sh"), "-c", "log=$1; shift; exec \"$@\" >\"$log\" 2>&1", "sh", log.string()};
    } else {
        // A mount namespace of KWin's own: the root gets the machine's
        // devices, /proc, /sys and /tmp (our folder, the X11 sockets and
        // their locks, the scripts Tarnwick hands KWin), and all of it goes
        // when KWin ends. XWayland needs /tmp/.X11-unix to be there.
        command = {*pathOf("unshare"), "-m", "--propagation", "private", *pathOf("sh"), "-c",
                   "root=$1 log=$2; shift 2; exec >\"$log\" 2>&1\n"
                   "[ -d /tmp/.X11-unix ] || install -d -m 1777 /tmp/.X11-unix\n"
                   "mount --rbind /dev \"$root/dev\" && mount -t proc proc \"$root/proc\" &&\n"
                   "  mount --rbind /sys \"$root/sys\" && mount --rbind /tmp \"$root/tmp\" || exit 1\n"
                   "exec chroot \"$root\" \"$@\"",
                   "sh", root.string(), log.string()};
    }
    // Screenshots for the tests that look at what the desktop shows: KWin
    // otherwise answers them only for programs whose desktop entry it trusts.
    for (const std::string& word :
         {std::string("env"), std::string("KWIN_SCREENSHOT_NO_PERMISSION_CHECKS=1"), "HOME=" + (base / "home").string(), (base / "bin" / "kwin_wayland").string(),
          std::string("--virtual"), std::string("--width"), std::to_string(width), std::string("--height"),
          std::to_string(height), std::string("--output-count"), std::to_string(outputs), std::string("--socket"),
          wayland_, std::string("--xwayland"), std::string("--no-lockscreen"), std::string("--no-global-shortcuts"),
          std::string("--no-kactivities")})
        command.push_back(word);
    auto kwin = startGroup(command, why);
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
        auto display = owner && owner->find("true") != std::string::npos ? xDisplayOf(kwin_->pid()) : std::nullopt;
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
    // As a Plasma Wayland login says: Qt programs take Wayland by this.
    remember("XDG_SESSION_TYPE", "wayland");
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

bool KWinSession::scriptLoaded(const std::string& name) {
    auto answer = call({"call", "--session", "--dest", "org.kde.KWin", "--object-path", "/Scripting", "--method",
                        "org.kde.kwin.Scripting.isScriptLoaded", name});
    return answer && answer->find("true") != std::string::npos;
}

// The numbers of the scripts KWin has on the bus: /N on KWin 5.27,
// /Scripting/ScriptN on KWin 6.
std::set<int> KWinSession::publishedScripts() {
    std::set<int> numbers;
    for (const std::string& parent : {std::string("/"), std::string("/Scripting")}) {
        auto xml = call({"call", "--session", "--dest", "org.kde.KWin", "--object-path", parent, "--method",
                         "org.freedesktop.DBus.Introspectable.Introspect"});
        if (!xml) continue;
        const std::string prefix = parent == "/" ? "" : "Script";
        const std::string opening = "<node name=\"";
        for (size_t at = xml->find(opening); at != std::string::npos; at = xml->find(opening, at + 1)) {
            size_t start = at + opening.size();
            size_t end = xml->find('"', start);
            if (end == std::string::npos) break;
            std::string node = xml->substr(start, end - start);
            if (node.rfind(prefix, 0) != 0) continue;
            node.erase(0, prefix.size());
            if (!node.empty() && node.size() < 7 && node.find_first_not_of("0123456789") == std::string::npos)
                numbers.insert(std::stoi(node));
        }
    }
    return numbers;
}

void KWinSession::stopEveryScript() {
    for (int id : publishedScripts())
        for (const char* prefix : {"/", "/Scripting/Script"})
            call({"call", "--session", "--dest", "org.kde.KWin", "--object-path", prefix + std::to_string(id),
                  "--method", "org.kde.kwin.Script.stop"});
}

bool KWinSession::loadScript(const std::string& name) {
    std::filesystem::path file = folder_->path() / (name + ".js");
    std::ofstream(file) << "\n";
    return call({"call", "--session", "--dest", "org.kde.KWin", "--object-path", "/Scripting", "--method",
                 "org.kde.kwin.Scripting.loadScript", file.string(), name})
        .has_value();
}

void KWinSession::unloadScript(const std::string& name) {
    call({"call", "--session", "--dest", "org.kde.KWin", "--object-path", "/Scripting", "--method",
          "org.kde.kwin.Scripting.unloadScript", name});
}

void KWinSession::script(const std::string& source) {
    if (!running()) return;
    scripts_ += 1;
    std::string name = "tarnwick-probe-" + std::to_string(scripts_);
    std::filesystem::path file = folder_->path() / (name + ".js");
    std::filesystem::path log = folder_->path() / "kwin.log";
    // The script says when it has run into KWin's output, which we keep,
    // also when it stopped at an error, which is passed on.
    std::ofstream(file) << scriptPrelude << "try {\n"
                        << source << "\n} catch (error) { print(\"" << name << " failed: \" + error); }\nprint(\""
                        << name << " ran\");\n";
    // HACK: KWin numbers a script by how many are loaded, so after a script
    // below one that stays is unloaded, the next one gets the number of the
    // one that stays, and running it would run that one. Such a load is
    // kept, holding the number, and the script loaded again.
    const std::set<int> taken = publishedScripts();
    std::string id, loadedAs;
    for (int attempt = 0; attempt < 4; ++attempt) {
        std::string as = attempt == 0 ? name : name + "+" + std::to_string(attempt);
        auto loaded = call({"call", "--session", "--dest", "org.kde.KWin", "--object-path", "/Scripting", "--method",
                            "org.kde.kwin.Scripting.loadScript", file.string(), as});
        if (!loaded) return;
        id.clear();
        for (char c : *loaded)
            if (c >= '0' && c <= '9') id.push_back(c);
        if (id.empty() || taken.count(std::stoi(id)) == 0) {
            loadedAs = as;
            break;
        }
    }
    // HACK: KWin 5.27 exports a loaded script as /N, KWin 6 as /Scripting/ScriptN.
    auto run = [&](const std::string& prefix) {
        return call({"call", "--session", "--dest", "org.kde.KWin", "--object-path", prefix + id, "--method",
                     "org.kde.kwin.Script.run"})
            .has_value();
    };
    if (scriptPrefix_.empty() || !run(scriptPrefix_))
        for (const char* prefix : {"/Scripting/Script", "/"})
            if (run(prefix)) {
                scriptPrefix_ = prefix;
                break;
            }
    auto deadline = Clock::now() + std::chrono::seconds(10);
    std::string text;
    while ((text = fileText(log)).find(name + " ran") == std::string::npos && Clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (size_t failed = text.find(name + " failed: "); failed != std::string::npos)
        std::fprintf(stderr, "kwin session: %s\n", text.substr(failed, text.find('\n', failed) - failed).c_str());
    else if (text.find(name + " ran") == std::string::npos)
        std::fprintf(stderr, "kwin session: %s did not run within 10 s\n", name.c_str());
    call({"call", "--session", "--dest", "org.kde.KWin", "--object-path", "/Scripting", "--method",
          "org.kde.kwin.Scripting.unloadScript", loadedAs});
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

std::map<std::string, KWinWindow> KWinSession::windowsByTitle() {
    std::map<std::string, KWinWindow> byTitle;
    for (KWinWindow& window : windows()) byTitle[window.caption] = window;
    return byTitle;
}

std::string forWindow(const std::string& title, const std::string& body) {
    return "var l = kwinWindows();\nfor (var i = 0; i < l.length; ++i) if (l[i].caption == \"" + title +
           "\") { var c = l[i]; " + body + " }\n";
}

std::vector<KWinWindow> KWinSession::windows() {
    std::vector<KWinWindow> found;
    if (!running()) return found;
    std::filesystem::path log = folder_->path() / "kwin.log";
    std::string marker = "tarnwick-listing-" + std::to_string(scripts_ + 1) + " ";
    script("var l = kwinWindows(), o = [];\n"
           "for (var i = 0; i < l.length; ++i) o.push({id: String(l[i].internalId), pid: l[i].pid, desktop: "
           "desktopOf(l[i])});\n"
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
