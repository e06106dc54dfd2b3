// Process facts from /proc.
#include "platform/linux/process.h"

#include "model/unique_fd.h"

#include <algorithm>
#include <climits>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace tarnwick::Process {

namespace {

std::string procPath(std::int32_t pid, const char* leaf) { return "/proc/" + std::to_string(pid) + "/" + leaf; }

// Read whole with plain calls: a capture reads a few small files of every
// process, and a stream's set-up costs more than the reading.
std::optional<std::string> readFile(const std::string& path) {
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) return std::nullopt;
    std::string text;
    char buffer[4096];
    for (;;) {
        ssize_t got = retryOnEintr([&] { return ::read(fd.get(), buffer, sizeof buffer); });
        if (got < 0) return std::nullopt;
        if (got == 0) return text;
        text.append(buffer, static_cast<size_t>(got));
    }
}

// Where a link of /proc points: one call, where std::filesystem asks twice.
std::optional<std::string> linkTarget(const std::string& path) {
    char target[PATH_MAX + 1];
    ssize_t length = ::readlink(path.c_str(), target, sizeof target);
    if (length <= 0) return std::nullopt;
    if (static_cast<size_t>(length) < sizeof target) return std::string(target, static_cast<size_t>(length));
    // Longer than any path should be: asked again at its full length.
    std::error_code error;
    auto whole = std::filesystem::read_symlink(path, error);
    if (error || whole.empty()) return std::nullopt;
    return whole.string();
}

}  // namespace

std::optional<std::string> executable(std::int32_t pid) {
    if (pid <= 0) return std::nullopt;
    return linkTarget(procPath(pid, "exe"));
}

std::optional<std::string> commandName(std::int32_t pid) {
    if (pid <= 0) return std::nullopt;
    auto text = readFile(procPath(pid, "comm"));
    if (!text) return std::nullopt;
    while (!text->empty() && text->back() == '\n') text->pop_back();
    if (text->empty()) return std::nullopt;
    return text;
}

bool alive(std::int32_t pid) {
    if (pid <= 0) return false;
    auto stat = readFile(procPath(pid, "stat"));
    if (!stat) return false;
    // "pid (comm) S …": the name may hold spaces and parentheses, the state
    // follows the last ')'.
    size_t close = stat->rfind(')');
    if (close == std::string::npos || close + 2 >= stat->size()) return false;
    char state = (*stat)[close + 2];
    return state != 'Z' && state != 'X' && state != 'x';
}

std::optional<std::vector<std::string>> commandLine(std::int32_t pid) {
    if (pid <= 0) return std::nullopt;
    auto text = readFile(procPath(pid, "cmdline"));
    if (!text || text->empty()) return std::nullopt;
    // Words end with a NUL each; a program that rewrote its arguments may leave none at the end.
    if (text->back() != '\0') text->push_back('\0');
    std::vector<std::string> words;
    size_t start = 0;
    for (size_t end = text->find('\0'); end != std::string::npos; end = text->find('\0', start)) {
        words.emplace_back(*text, start, end - start);
        start = end + 1;
    }
    return words;
}

std::optional<std::string> workingDirectory(std::int32_t pid) {
    if (pid <= 0) return std::nullopt;
    return linkTarget(procPath(pid, "cwd"));
}

std::vector<std::int32_t> children(std::int32_t pid) {
    std::vector<std::int32_t> found;
    if (pid <= 0) return found;
    // Each thread of the process lists the children it started.
    std::error_code error;
    for (auto task = std::filesystem::directory_iterator(procPath(pid, "task"), error);
         !error && task != std::filesystem::directory_iterator(); task.increment(error)) {
        auto text = readFile((task->path() / "children").string());
        if (!text) continue;
        size_t at = 0;
        while (at < text->size()) {
            size_t end = text->find(' ', at);
            if (end == std::string::npos) end = text->size();
            if (end > at) found.push_back(static_cast<std::int32_t>(std::stol(text->substr(at, end - at))));
            at = end + 1;
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

}  // namespace tarnwick::Process
