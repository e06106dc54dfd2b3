// Running a program of ours as a process and collecting what it printed.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <spawn.h>
#include <string>
#include <string_view>
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

// Runs the program with the arguments in our environment plus `extra` (which
// replaces our variables of the same names), and collects both outputs.
// Standard error only ever holds a line or two, so it is read after standard
// output without risk of a full pipe.
// `folder`, when given, is its working folder.
inline Finished run(const std::string& program, const std::vector<std::string>& arguments,
                    const std::vector<std::string>& extra = {}, const std::string& folder = "") {
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
    // `extra` wins: a shell in between would take the last of two same names.
    std::vector<std::string> env(extra);
    auto overridden = [&](const char* entry) {
        std::string_view name(entry, std::strcspn(entry, "="));
        for (const std::string& mine : extra)
            if (mine.size() > name.size() && mine.compare(0, name.size(), name) == 0 && mine[name.size()] == '=')
                return true;
        return false;
    };
    for (char** entry = environ; *entry; ++entry)
        if (!overridden(*entry)) env.emplace_back(*entry);
    std::vector<char*> envp;
    for (auto& entry : env) envp.push_back(entry.data());
    envp.push_back(nullptr);
    pid_t pid = 0;
    int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(err[1]);
    Finished finished;
    finished.out = drain(out[0]);
    finished.err = drain(err[0]);
    if (spawned != 0) {
        ADD_FAILURE() << "cannot start " << program << ": " << std::strerror(spawned);
        return finished;
    }
    while (::waitpid(pid, &finished.status, 0) < 0 && errno == EINTR) {
    }
    return finished;
}

}  // namespace tarnwick::testing
