// ChildProcess on POSIX: posix_spawn with RAII wrappers, close-on-exec pipes, reaping.
#include "scripting/child_process.h"

#include "model/invariant.h"

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>

extern char** environ;

namespace tarnwick {

namespace {

struct FileActions {
    posix_spawn_file_actions_t value;
    FileActions() { posix_spawn_file_actions_init(&value); }
    ~FileActions() { posix_spawn_file_actions_destroy(&value); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
};

struct SpawnAttributes {
    posix_spawnattr_t value;
    SpawnAttributes() { posix_spawnattr_init(&value); }
    ~SpawnAttributes() { posix_spawnattr_destroy(&value); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
};

// A pipe whose two ends are closed in every child we start (the child gets its
// copies through dup2, which clears the flag on the copy only).
bool makePipe(UniqueFd& readEnd, UniqueFd& writeEnd) {
    int fds[2];
#if defined(__APPLE__)
    // No pipe2 on macOS. The window before FD_CLOEXEC is set does not matter for
    // our own children, which start with POSIX_SPAWN_CLOEXEC_DEFAULT.
    if (::pipe(fds) != 0) return false;
    ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
    ::fcntl(fds[1], F_SETFD, FD_CLOEXEC);
#else
    if (::pipe2(fds, O_CLOEXEC) != 0) return false;
#endif
    readEnd.reset(fds[0]);
    writeEnd.reset(fds[1]);
    return true;
}

// Waits for pid without blocking; true once it has been reaped (or is gone).
bool reaped(pid_t pid, int& status) {
    pid_t r = retryOnEintr([&] { return ::waitpid(pid, &status, WNOHANG); });
    return r == pid || r == -1;
}

}  // namespace

ChildProcess::ChildProcess(pid_t pid, UniqueFd input, UniqueFd output, UniqueFd errorOutput)
    : pid_(pid), input_(std::move(input)), output_(std::move(output)), errorOutput_(std::move(errorOutput)) {}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      input_(std::move(other.input_)),
      output_(std::move(other.output_)),
      errorOutput_(std::move(other.errorOutput_)) {}

ChildProcess::~ChildProcess() {
    if (pid_ > 0) terminateInBackground();
}

std::optional<ChildProcess> ChildProcess::start(const std::string& path, const std::vector<std::string>& arguments,
                                                Input input, ErrorOutput errorOutput, int& error) {
    UniqueFd inRead, inWrite, outRead, outWrite, errRead, errWrite;
    if ((input == Input::pipe && !makePipe(inRead, inWrite)) || !makePipe(outRead, outWrite) ||
        (errorOutput == ErrorOutput::pipe && !makePipe(errRead, errWrite))) {
        error = errno;
        return std::nullopt;
    }

    FileActions actions;
    if (input == Input::pipe) posix_spawn_file_actions_adddup2(&actions.value, inRead.get(), 0);
#if defined(__APPLE__)
    else posix_spawn_file_actions_addinherit_np(&actions.value, 0);
#endif
    posix_spawn_file_actions_adddup2(&actions.value, outWrite.get(), 1);
    if (errorOutput == ErrorOutput::pipe) posix_spawn_file_actions_adddup2(&actions.value, errWrite.get(), 2);
    else posix_spawn_file_actions_addopen(&actions.value, 2, "/dev/null", O_WRONLY, 0);

#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 34))
    // Descriptors we inherited without close-on-exec stay out of the child too.
    posix_spawn_file_actions_addclosefrom_np(&actions.value, 3);
#endif

    SpawnAttributes attributes;
    short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
#if defined(__APPLE__)
    // Whatever another thread opened without FD_CLOEXEC stays out of the child.
    flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
#endif
    posix_spawnattr_setflags(&attributes.value, flags);
    sigset_t none, defaults;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes.value, &none);
    // We ignore SIGPIPE and SIGXFSZ ourselves; the tools we start expect the default.
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGXFSZ);
    posix_spawnattr_setsigdefault(&attributes.value, &defaults);

    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(path.c_str()));
    for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    pid_t pid = -1;
    error = posix_spawn(&pid, path.c_str(), &actions.value, &attributes.value, argv.data(), environ);
    if (error != 0) return std::nullopt;
    return ChildProcess(pid, std::move(inWrite), std::move(outRead), std::move(errRead));
}

int ChildProcess::wait() {
    int status = 0;
    // Waiting for -1 would reap any child of ours, not this one.
    if (pid_ <= 0) invariantFailed("waiting for a child that was already reaped");
    retryOnEintr([&] { return ::waitpid(pid_, &status, 0); });
    pid_ = -1;
    return status;
}

std::optional<int> ChildProcess::waitUntil(Deadline deadline) {
    int status = 0;
    if (pid_ <= 0) invariantFailed("waiting for a child that was already reaped");
    auto pause = std::chrono::microseconds(100);
    while (!reaped(pid_, status)) {
        if (std::chrono::steady_clock::now() >= deadline) return std::nullopt;
        std::this_thread::sleep_for(pause);
        pause = std::min<std::chrono::microseconds>(pause * 2, std::chrono::milliseconds(10));
    }
    pid_ = -1;
    return status;
}

void ChildProcess::terminateInBackground() {
    pid_t pid = std::exchange(pid_, -1);
    if (pid <= 0) return;
    ::kill(pid, SIGTERM);
    std::thread([pid] {
        int status = 0;
        for (int i = 0; i < 100; ++i) {
            if (reaped(pid, status)) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        // Still there five seconds after SIGTERM: it is not going to listen.
        ::kill(pid, SIGKILL);
        retryOnEintr([&] { return ::waitpid(pid, &status, 0); });
    }).detach();
}

}  // namespace tarnwick
