// Running a program of ours as a process and collecting what it printed.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <chrono>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace tarnwick::testing {

struct Finished {
    int status = 0;
    std::string out;
    std::string err;

    bool exitedWith(int code) const { return WIFEXITED(status) && WEXITSTATUS(status) == code; }
    bool stoppedAbnormally() const { return WIFSIGNALED(status); }
};

// A run with a deadline: whether it was killed for overrunning it, and the most
// memory the program held (ru_maxrss of wait4, in KiB on Linux).
struct Bounded : Finished {
    bool overran = false;
    long maxResidentKiB = 0;
};

inline std::string drain(int fd) {
    std::string text;
    char buffer[65536];
    for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) != 0;) {
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) break;
        text.append(buffer, static_cast<size_t>(n));
    }
    ::close(fd);
    return text;
}

// Our environment with the variables of `extra` put in place of ours: a shell
// between us and the program would otherwise take the last of two.
inline std::vector<std::string> environmentWith(const std::vector<std::string>& extra) {
    std::vector<std::string> env(extra);
    for (char** entry = environ; *entry; ++entry) {
        std::string_view variable(*entry);
        std::string_view name = variable.substr(0, variable.find('='));
        auto sameName = [&](const std::string& mine) {
            return mine.size() > name.size() && mine.compare(0, name.size(), name) == 0 && mine[name.size()] == '=';
        };
        if (std::none_of(extra.begin(), extra.end(), sameName)) env.emplace_back(variable);
    }
    return env;
}

// Starts the program with the arguments in our environment plus `extra`, in
// `folder` when one is given, its standard output and error on pipes whose
// reading ends are handed back; the spawn's error number, 0 when it started.
struct Spawned {
    pid_t pid = 0;
    int out = -1;
    int err = -1;
    int error = 0;
};
inline Spawned spawnWithPipes(const std::string& program, const std::vector<std::string>& arguments,
                              const std::vector<std::string>& extra, const std::string& folder) {
    int out[2], err[2];
    if (::pipe(out) != 0 || ::pipe(err) != 0) std::abort();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    posix_spawn_file_actions_addclose(&actions, err[0]);
    if (!folder.empty()) posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
    std::vector<std::string> args{program};
    args.insert(args.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    std::vector<std::string> env = environmentWith(extra);
    std::vector<char*> envp;
    for (auto& entry : env) envp.push_back(entry.data());
    envp.push_back(nullptr);
    Spawned spawned;
    spawned.error = posix_spawn(&spawned.pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(err[1]);
    spawned.out = out[0];
    spawned.err = err[0];
    return spawned;
}

// Runs the program with the arguments in our environment plus `extra`, and
// collects both outputs. Standard error only ever holds a line or two, so it
// is read after standard output without risk of a full pipe.
// `folder`, when given, is its working folder.
inline Finished run(const std::string& program, const std::vector<std::string>& arguments,
                    const std::vector<std::string>& extra = {}, const std::string& folder = "") {
    Spawned child = spawnWithPipes(program, arguments, extra, folder);
    Finished finished;
    finished.out = drain(child.out);
    finished.err = drain(child.err);
    if (child.error != 0) {
        ADD_FAILURE() << "cannot start " << program << ": " << std::strerror(child.error);
        return finished;
    }
    pid_t pid = child.pid;
    while (::waitpid(pid, &finished.status, 0) < 0 && errno == EINTR) {
    }
    return finished;
}

// Runs the program as `run` does, but kills it (SIGKILL) once `deadline` has
// passed, draining both outputs together meanwhile; the child is always reaped.
inline Bounded runWithin(std::chrono::milliseconds deadline, const std::string& program,
                         const std::vector<std::string>& arguments, const std::vector<std::string>& extra = {}) {
    Spawned child = spawnWithPipes(program, arguments, extra, "");
    pid_t pid = child.pid;
    Bounded finished;
    if (child.error != 0) {
        ::close(child.out);
        ::close(child.err);
        ADD_FAILURE() << "cannot start " << program << ": " << std::strerror(child.error);
        return finished;
    }
    auto end = std::chrono::steady_clock::now() + deadline;
    pollfd fds[2] = {{child.out, POLLIN, 0}, {child.err, POLLIN, 0}};
    std::string* texts[2] = {&finished.out, &finished.err};
    int open = 2;
    while (open > 0) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            finished.overran = true;
            ::kill(pid, SIGKILL);
            break;
        }
        int ready = ::poll(fds, 2, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR) continue;
        if (ready < 0) break;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            char buffer[65536];
            ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
            if (n < 0 && errno == EINTR) continue;
            if (n > 0) {
                texts[i]->append(buffer, static_cast<size_t>(n));
                continue;
            }
            ::close(fds[i].fd);
            fds[i].fd = -1;
            --open;
        }
    }
    // Output closed or deadline passed: the child must end by the deadline too.
    for (;;) {
        rusage usage{};
        pid_t done = ::wait4(pid, &finished.status, WNOHANG, &usage);
        if (done == pid) {
            finished.maxResidentKiB = usage.ru_maxrss;
            break;
        }
        if (done < 0 && errno != EINTR) break;
        if (!finished.overran && std::chrono::steady_clock::now() >= end) {
            finished.overran = true;
            ::kill(pid, SIGKILL);
        }
        ::usleep(10'000);
    }
    for (auto& fd : fds)
        if (fd.fd >= 0) ::close(fd.fd);
    return finished;
}

}  // namespace tarnwick::testing
