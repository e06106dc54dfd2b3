// The process entry: choosing the mode, "--capture" and "--restore FILE".
#include "main/entry.h"

#include "access/axo.h"
#include "model/snapshot_json.h"
#include "session/capture.h"
#include "session/restore.h"
#include "store/unique_fd.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace tarnwick::Entry {

namespace {

// The one-shot modes end the process abnormally on bad input: a script that
// runs us must not mistake a failure for an empty result.
[[noreturn]] void fatal(const std::string& message) {
    std::fprintf(stderr, "tarnwick: %s\n", message.c_str());
    std::fflush(stderr);
    std::abort();
}

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

void printLine(std::FILE* out, const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), out);
    std::fputc('\n', out);
    std::fflush(out);
}

}  // namespace

Choice choose(const std::vector<std::string>& arguments) {
    for (const std::string& argument : arguments)
        if (argument == "--capture") return Choice{Mode::capture, {}};
    for (size_t i = 0; i < arguments.size(); ++i)
        if (arguments[i] == "--restore") {
            // "--restore" as the last argument asks for nothing: start normally.
            if (i + 1 < arguments.size()) return Choice{Mode::restore, arguments[i + 1]};
            break;
        }
    return Choice{Mode::application, {}};
}

int captureMode(std::FILE* out, std::FILE* err) {
    Snapshot snapshot = Capture::snapshot("cli");
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

int restoreMode(const std::string& path, std::FILE* out) {
    int error = 0;
    auto text = readFile(path, error);
    if (!text) fatal("cannot read " + path + ": " + std::strerror(error));
    std::string reason;
    auto snapshot = decodeSnapshot(*text, &reason);
    if (!snapshot) fatal(path + " is not a snapshot: " + reason);

    Restore::Result result = Restore::run(*snapshot, [out](const std::string& line) { printLine(out, line); });
    printLine(out, "launched " + std::to_string(result.launched) + ", windows " + std::to_string(result.windows) +
                       ", tabs " + std::to_string(result.tabs));
    for (const std::string& problem : result.problems) printLine(out, "problem: " + problem);
    return 0;
}

std::optional<int> runOneShot(const std::vector<std::string>& arguments) {
    Choice choice = choose(arguments);
    switch (choice.mode) {
        case Mode::capture: return captureMode(stdout, stderr);
        case Mode::restore: return restoreMode(choice.path, stdout);
        case Mode::application: return std::nullopt;
    }
    return std::nullopt;
}

}  // namespace tarnwick::Entry
