// The process entry: choosing the mode, "--capture", "--restore" and the steps around the desktop.
#include "main/entry.h"
#include "main/modes.h"

#include "access/axo.h"
#include "model/printable.h"
#include "model/snapshot_json.h"
#include "session/capture.h"
#include "session/restore.h"
#include "store/signing.h"
#include "store/snapshot_file.h"
#include "model/unique_fd.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace tarnwick::Entry {

void fatal(const std::string& message) {
    // The message names a file and quotes what it held.
    std::fprintf(stderr, "tarnwick: %s\n", printable(message).c_str());
    std::fflush(stderr);
    std::abort();
}

void printLine(std::FILE* out, const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), out);
    std::fputc('\n', out);
    std::fflush(out);
}

namespace {

Choice usageError(const std::string& problem) {
    Choice choice{Mode::usage, {}};
    choice.problem = problem + "; tarnwick --help lists the modes";
    return choice;
}

bool isOption(const std::string& argument) { return !argument.empty() && argument.front() == '-'; }

}  // namespace

bool reportedDesktopLost(std::FILE* err, const std::string& outcome) {
    if (!platform().desktopLost()) return false;
    printLine(err, "tarnwick: the display went away; " + outcome);
    return true;
}

Choice choose(const std::vector<std::string>& arguments) {
    for (const std::string& argument : arguments)
        if (argument == "--capture") return Choice{Mode::capture, {}};
    // The user vouches for the snapshot a restore or a diff names.
    const bool trust = std::find(arguments.begin(), arguments.end(), "--trust") != arguments.end();
    size_t end = arguments.size();
    for (size_t i = 0; i < arguments.size(); ++i)
        if (arguments[i] == "--restore") {
            if (i + 1 < arguments.size()) {
                // An unset variable in a script must not restore whatever is newest.
                if (arguments[i + 1].empty()) return usageError("empty snapshot name after --restore");
                Choice choice{Mode::restore, arguments[i + 1]};
                choice.trust = trust;
                return choice;
            }
            // "--restore" as the last argument asks for nothing: as if it were absent.
            end = i;
            break;
        }
    std::optional<Choice> chosen;  // the first mode named decides
    bool json = false;
    for (size_t i = 1; i < end; ++i) {
        const std::string& argument = arguments[i];
        // The word after "--save" or "--diff" is its reason or snapshot, unless it is an option.
        auto word = [&]() -> std::optional<std::string> {
            if (i + 1 < end && !isOption(arguments[i + 1])) return arguments[++i];
            return std::nullopt;
        };
        if (argument == "--help" || argument == "-h") {
            if (!chosen) chosen = Choice{Mode::help, {}};
        } else if (argument == "--version") {
            if (!chosen) chosen = Choice{Mode::version, {}};
        } else if (argument == "--list") {
            if (!chosen) chosen = Choice{Mode::list, {}};
        } else if (argument == "--json") {
            json = true;
        } else if (argument == "--trust") {
            // Goes with --diff; checked once the mode is known.
        } else if (argument == "--save") {
            auto reason = word();
            if (reason && reason->empty()) return usageError("empty reason after --save");
            if (!chosen) {
                chosen = Choice{Mode::save, {}};
                if (reason) chosen->reason = *reason;
            }
        } else if (argument == "--diff") {
            auto name = word();
            if (name && name->empty()) return usageError("empty snapshot name after --diff");
            if (!chosen) chosen = Choice{Mode::diff, name.value_or("")};
#if defined(__APPLE__)
        } else if (argument.rfind("-psn_", 0) == 0) {
            // HACK: older macOS hands an application opened from Finder its process serial number.
#endif
        } else if (isOption(argument)) {
            return usageError("unknown option \"" + printable(argument) + "\"");
        } else {
            return usageError("unexpected argument \"" + printable(argument) + "\"");
        }
    }
    if (trust && (!chosen || chosen->mode != Mode::diff))
        return usageError("--trust goes with --restore or --diff");
    if (!chosen) return Choice{Mode::application, {}};
    chosen->json = chosen->mode == Mode::list && json;
    chosen->trust = trust;
    return *chosen;
}

int captureMode(std::FILE* out, std::FILE* err) {
    Snapshot snapshot = Capture::snapshot("cli");
    // What was read before it went away is not the session: nothing is printed.
    if (reportedDesktopLost(err, "nothing was captured")) return displayLostStatus;
    std::string reason;
    // Signed like the store's files: what this Tarnwick printed is its own to
    // restore. The launch data holds each text as the file will.
    auto json = encodeSnapshot(snapshot, Signing::signatureOf(snapshot), &reason);
    if (!json) fatal("cannot encode the snapshot: " + reason);
    printLine(out, *json);
    // What lets the capture see windows: the window manager on X11, Accessibility on a Mac.
    if (auto manager = platform().windowManagerName())
        printLine(err, snapshot.summary() + "; window manager: " + printable(*manager));
    else
        printLine(err, snapshot.summary() + "; accessibility " + (AXO::trusted() ? "on" : "off"));
    return 0;
}

std::optional<Snapshot> readSnapshotFile(const std::string& path) {
    std::string text;
    FileProblem problem;
    auto length = readSnapshotFile(path, text, 0, &problem);
    if (!length && problem.refused) fatal(path + " is not a readable snapshot: " + problem.why);
    if (!length) fatal("cannot read " + path + ": " + problem.why);
    text.resize(*length);
    std::string reason;
    auto snapshot = decodeSnapshot(text, &reason);
    if (!snapshot) fatal(path + " is not a snapshot: " + reason);
    Signing::judge(*snapshot);
    return snapshot;
}

int restoreMode(const Snapshot& snapshot, std::FILE* out, std::FILE* err) {
    // Progress lines and problems carry names and titles from the snapshot.
    Restore::Result result =
        Restore::run(snapshot, [out](const std::string& line) { printLine(out, printable(line)); });
    printLine(out, "launched " + std::to_string(result.launched) + ", windows " + std::to_string(result.windows) +
                       ", tabs " + std::to_string(result.tabs));
    for (const std::string& problem : result.problems) printLine(out, "problem: " + printable(problem));
    if (reportedDesktopLost(err, "the restore stopped before it was done")) return displayLostStatus;
    return 0;
}

std::optional<int> beforeDesktop(const Choice& choice, std::optional<Snapshot>& target) {
    switch (choice.mode) {
        case Mode::usage: printLine(stderr, "tarnwick: " + choice.problem); return 2;
        case Mode::help: return helpMode(stdout);
        case Mode::version: return versionMode(stdout);
        case Mode::list: return listMode(choice.json, stdout, stderr);
        case Mode::restore:
        case Mode::diff: {
            std::string why;
            target = namedSnapshot(choice.path, why);
            // The user vouches for the file: what it names may be started.
            if (target && choice.trust) target->trusted = true;
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
        case Mode::save: return saveMode(choice.reason, stdout, stderr);
        case Mode::diff: return diffMode(*target, stdout);
        case Mode::help:
        case Mode::version:
        case Mode::list:
        case Mode::usage:
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
        int failure = errno;
        std::fprintf(stderr, "tarnwick: cannot start %s: %s\n", printable(tray.string()).c_str(),
                     std::strerror(failure));
        return 2;
    }
    std::fprintf(stderr, "tarnwick: the tray application (tarnwick-tray) is not installed beside %s\n",
                 printable(self.string()).c_str());
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
