// ChildProcess: a program started with posix_spawn, its pipes, and its reaping.
#pragma once

#include "model/unique_fd.h"

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tarnwick {

class ChildProcess {
public:
    enum class Input { inherit, pipe };
    enum class ErrorOutput { pipe, discard };
    using Deadline = std::chrono::steady_clock::time_point;

    // Starts `path` with the arguments (not through a shell), standard output on a
    // pipe. Nothing, with the errno-style reason in `error`, when it cannot start.
    static std::optional<ChildProcess> start(const std::string& path, const std::vector<std::string>& arguments,
                                             Input input, ErrorOutput errorOutput, int& error);

    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&&) = delete;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    // A child that was never waited for is terminated and reaped in the background.
    ~ChildProcess();

    pid_t pid() const { return pid_; }
    UniqueFd& input() { return input_; }
    UniqueFd& output() { return output_; }
    UniqueFd& errorOutput() { return errorOutput_; }

    // Waits for the child to exit and returns its wait status.
    int wait();
    // The same, giving up at the deadline (the child is then still running).
    std::optional<int> waitUntil(Deadline deadline);

    // Sends SIGTERM and leaves the reaping to a background thread, which kills
    // the child outright if it has not exited after a grace period. The caller
    // goes on at once.
    void terminateInBackground();

private:
    ChildProcess(pid_t pid, UniqueFd input, UniqueFd output, UniqueFd errorOutput);

    pid_t pid_;
    UniqueFd input_, output_, errorOutput_;
};

}  // namespace tarnwick
