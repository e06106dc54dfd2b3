// The process entry: choosing the mode, "--capture", "--restore" and the steps around the desktop.
#include "main/entry.h"
#include "main/modes.h"

#include "access/axo.h"
#include "model/snapshot_json.h"
#include "session/capture.h"
#include "session/restore.h"
#include "store/unique_fd.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace tarnwick::Entry {

namespace {

// The whole file, or nothing with the errno value that says why in `error`.
std::optional<std::string> readFile(const std::string& path, int& error) {
    UniqueFd fd(retryOnEintr([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
    if (!fd) {
        error = errno;
        return std::nullopt;
    }
    std::string text;
    char buffer[65536];
    for (;;) {
        ssize_t n = retryOnEintr([&] { return ::read(fd.get(), buffer, sizeof buffer); });
        if (n < 0) {
            error = errno;  // a folder fails here, with EISDIR
            return std::nullopt;
        }
        if (n == 0) return text;
        text.append(buffer, static_cast<size_t>(n));
    }
}

}  // namespace

void fatal(const std::string& message) {
    std::fprintf(stderr, "tarnwick: %s\n", message.c_str());
    std::fflush(stderr);
    std::abort();
}

void printLine(std::FILE* out, const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), out);
    std::fputc('\n', out);
    std::fflush(out);
}

bool reportedDesktopLost(std::FILE* err, const std::string& outcome) {
    if (!platform().desktopLost()) return false;
    printLine(err, "tarnwick: the display went away; " + outcome);
    return true;
}

Choice choose(const std::vector<std::string>& arguments) {
    for (const std::string& argument : arguments)
        if (argument == "--capture") return Choice{Mode::capture, {}};
    for (size_t i = 0; i < arguments.size(); ++i)
        if (arguments[i] == "--restore") {
            // "--restore" as the last argument asks for nothing: start normally.
            if (i + 1 < arguments.size()) return Choice{Mode::restore, arguments[i + 1]};
            break;
        }
    // A word after "--save" or "--diff" is its reason or snapshot, unless it is another option.
    auto word = [&](size_t i) -> std::string {
        if (i + 1 < arguments.size() && arguments[i + 1].rfind("--", 0) != 0) return arguments[i + 1];
        return {};
    };
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--help" || argument == "-h") return Choice{Mode::help, {}};
        if (argument == "--version") return Choice{Mode::version, {}};
        if (argument == "--list") {
            Choice choice{Mode::list, {}};
            choice.json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
            return choice;
        }
        if (argument == "--save") {
            Choice choice{Mode::save, {}};
            if (auto reason = word(i); !reason.empty()) choice.reason = reason;
            return choice;
        }
        if (argument == "--diff") return Choice{Mode::diff, word(i)};
    }
    return Choice{Mode::application, {}};
}

int captureMode(std::FILE* out, std::FILE* err) {
    Snapshot snapshot = Capture::snapshot("cli");
    // What was read before it went away is not the session: nothing is printed.
    if (reportedDesktopLost(err, "nothing was captured")) return displayLostStatus;
    std::string reason;
    auto json = encodeSnapshot(snapshot, &reason);
    if (!json) fatal("cannot encode the snapshot: " + reason);
    printLine(out, *json);
    // What lets the capture see windows: the window manager on X11, Accessibility on a Mac.
    if (auto manager = platform().windowManagerName())
        printLine(err, snapshot.summary() + "; window manager: " + *manager);
    else
        printLine(err, snapshot.summary() + "; accessibility " + (AXO::trusted() ? "on" : "off"));
    return 0;
}

std::optional<Snapshot> readSnapshotFile(const std::string& path) {
    int error = 0;
    auto text = readFile(path, error);
    if (!text) fatal("cannot read " + path + ": " + std::strerror(error));
    std::string reason;
    auto snapshot = decodeSnapshot(*text, &reason);
    if (!snapshot) fatal(path + " is not a snapshot: " + reason);
    return snapshot;
}

int restoreMode(const Snapshot& snapshot, std::FILE* out, std::FILE* err) {
    Restore::Result result = Restore::run(snapshot, [out](const std::string& line) { printLine(out, line); });
    printLine(out, "launched " + std::to_string(result.launched) + ", windows " + std::to_string(result.windows) +
                       ", tabs " + std::to_string(result.tabs));
    for (const std::string& problem : result.problems) printLine(out, "problem: " + problem);
    if (reportedDesktopLost(err, "the restore stopped before it was done")) return displayLostStatus;
    return 0;
}

std::optional<int> beforeDesktop(const Choice& choice, std::optional<Snapshot>& target) {
    switch (choice.mode) {
        case Mode::help: return helpMode(stdout);
        case Mode::version: return versionMode(stdout);
        case Mode::list: return listMode(choice.json, stdout, stderr);
        case Mode::restore:
        case Mode::diff: {
            std::string why;
            target = namedSnapshot(choice.path, why);
            if (target) return std::nullopt;
            printLine(stderr, "tarnwick: " + why);
            return 1;
        }
        case Mode::capture:
        case Mode::save:
        case Mode::application: return std::nullopt;
    }
    return std::nullopt;
}

std::optional<int> onDesktop(const Choice& choice, const std::optional<Snapshot>& target) {
    switch (choice.mode) {
        case Mode::capture: return captureMode(stdout, stderr);
        case Mode::restore: return restoreMode(*target, stdout, stderr);
        case Mode::save: return saveMode(choice.reason, stdout);
        case Mode::diff: return diffMode(*target, stdout);
        case Mode::help:
        case Mode::version:
        case Mode::list:
        case Mode::application: return std::nullopt;
    }
    return std::nullopt;
}

#if !defined(__APPLE__)
int startTray(char** argv) {
    std::error_code error;
    auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    std::vector<std::filesystem::path> places;
    if (!error) places = {self.parent_path() / "tarnwick-tray", self.parent_path() / "../libexec/tarnwick/tarnwick-tray"};
    for (const auto& tray : places) {
        if (!std::filesystem::exists(tray, error)) continue;
        ::execv(tray.c_str(), argv);
        std::fprintf(stderr, "tarnwick: cannot start %s: %s\n", tray.c_str(), std::strerror(errno));
        return 2;
    }
    std::fprintf(stderr, "tarnwick: the tray application (tarnwick-tray) is not installed beside %s\n",
                 self.c_str());
    return 2;
}
#endif

std::optional<int> runOneShot(const std::vector<std::string>& arguments) {
    Choice choice = choose(arguments);
    std::optional<Snapshot> target;
    if (auto status = beforeDesktop(choice, target)) return status;
    return onDesktop(choice, target);
}

}  // namespace tarnwick::Entry
