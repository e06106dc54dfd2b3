// Launch::detached: a double fork, so the application outlives Tarnwick and is
// never one of its children to reap.
#include "platform/linux/launch.h"

#include "model/unique_fd.h"

#include <cerrno>
#include <cstdint>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace tarnwick::Launch {

namespace {

// What the intermediate child and the grandchild tell us through the pipe.
struct Message {
    std::int32_t kind;  // 0: the grandchild's pid, 1: an errno
    std::int32_t value;
};

// Only async-signal-safe calls from here on: the caller may have threads.
[[noreturn]] void tell(int fd, std::int32_t kind, std::int32_t value, int status) {
    Message message{kind, value};
    ssize_t ignored = ::write(fd, &message, sizeof message);
    (void)ignored;
    ::_exit(status);
}

[[noreturn]] void becomeProgram(int report, int null, const char* program, char* const* argv, const char* folder) {
    ::dup2(null, 0);
    ::dup2(null, 1);
    ::dup2(null, 2);
    if (folder[0] != '\0' && ::chdir(folder) != 0) {
        // The program still runs, from wherever we were.
    }
    // Our own signal settings are not the program's business.
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    for (int sig = 1; sig < NSIG; ++sig) ::signal(sig, SIG_DFL);
    // Descriptors we hold (pipes to our own callers among them) must not keep
    // those callers waiting for as long as the application runs.
    ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
    ::execve(program, argv, environ);
    tell(report, 1, errno, 127);
}

}  // namespace

std::optional<std::string> programPath(const std::string& name) {
    if (name.find('/') != std::string::npos) return name;
    const char* path = std::getenv("PATH");
    std::string folders = path != nullptr && *path != '\0' ? path : "/usr/local/bin:/usr/bin:/bin";
    size_t start = 0;
    while (start <= folders.size()) {
        size_t end = folders.find(':', start);
        if (end == std::string::npos) end = folders.size();
        std::string folder = folders.substr(start, end - start);
        std::string candidate = (folder.empty() ? std::string(".") : folder) + "/" + name;
        if (::access(candidate.c_str(), X_OK) == 0) return candidate;
        start = end + 1;
    }
    return std::nullopt;
}

std::optional<pid_t> detached(const std::vector<std::string>& arguments, const std::string& folder,
                              std::string& why) {
    if (arguments.empty()) {
        why = "nothing to run";
        return std::nullopt;
    }
    auto program = programPath(arguments.front());
    if (!program) {
        why = std::strerror(ENOENT);
        return std::nullopt;
    }
    std::vector<std::string> words(arguments);
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);

    int pipeEnds[2];
    if (::pipe2(pipeEnds, O_CLOEXEC) != 0) {
        why = std::strerror(errno);
        return std::nullopt;
    }
    UniqueFd reading(pipeEnds[0]), writing(pipeEnds[1]);
    UniqueFd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!null) {
        why = std::strerror(errno);
        return std::nullopt;
    }
    pid_t child = ::fork();
    if (child == 0) {
        ::setsid();
        pid_t grandchild = ::fork();
        if (grandchild < 0) tell(writing.get(), 1, errno, 1);
        if (grandchild == 0) becomeProgram(writing.get(), null.get(), program->c_str(), argv.data(), folder.c_str());
        tell(writing.get(), 0, grandchild, 0);
    }
    int forkError = errno;
    writing.reset();
    null.reset();
    if (child < 0) {
        why = std::strerror(forkError);
        return std::nullopt;
    }
    retryOnEintr([&] { return ::waitpid(child, nullptr, 0); });

    // The pipe closes when the program has been executed (close-on-exec) or
    // when the grandchild gave up, after saying why.
    std::optional<pid_t> pid;
    std::optional<int> error;
    Message message{};
    while (retryOnEintr([&] { return ::read(reading.get(), &message, sizeof message); }) ==
           static_cast<ssize_t>(sizeof message)) {
        if (message.kind == 0) pid = message.value;
        if (message.kind == 1) error = message.value;
    }
    if (error || !pid) {
        why = std::strerror(error.value_or(ECHILD));
        return std::nullopt;
    }
    return pid;
}

}  // namespace tarnwick::Launch
