// runAppleScript and Scripts::shell on POSIX: spawn, feed and drain with poll, deadline.
#include "scripting/runner.h"

#include "model/utf8.h"
#include "scripting/child_process.h"
#include "store/log.h"

#include <atomic>
#include <cmath>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <sys/wait.h>

namespace tarnwick {

namespace {

constexpr std::string_view kPrologue = "set tb to character id 9\n";

std::mutex toolsMutex;
Scripts::Tools currentTools;
std::atomic<Scripts::Host*> currentHost{nullptr};

// A child that exits before reading all of its input must not kill us with
// SIGPIPE: the write then fails with EPIPE instead.
void ignoreSigpipe() {
    static std::once_flag once;
    std::call_once(once, [] { std::signal(SIGPIPE, SIG_IGN); });
}

// Reads what is there; false at end of file or on an error.
bool readSome(int fd, std::string& into) {
    char buffer[65536];
    ssize_t n = retryOnEintr([&] { return ::read(fd, buffer, sizeof buffer); });
    if (n > 0) into.append(buffer, static_cast<size_t>(n));
    return n > 0 || (n < 0 && errno == EAGAIN);
}

// Feeds the input and drains both outputs together until both reach their end.
// False when the deadline passes first.
bool exchange(ChildProcess& child, std::string_view input, std::string& out, std::string& err,
              ChildProcess::Deadline deadline) {
    UniqueFd& in = child.input();
    ::fcntl(in.get(), F_SETFL, ::fcntl(in.get(), F_GETFL) | O_NONBLOCK);
    if (input.empty()) in.reset();
    while (child.output() || child.errorOutput()) {
        auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        pollfd fds[3];
        nfds_t count = 0;
        int inAt = -1, outAt = -1, errAt = -1;
        if (in) inAt = static_cast<int>(count), fds[count++] = {in.get(), POLLOUT, 0};
        if (child.output()) outAt = static_cast<int>(count), fds[count++] = {child.output().get(), POLLIN, 0};
        if (child.errorOutput()) errAt = static_cast<int>(count), fds[count++] = {child.errorOutput().get(), POLLIN, 0};
        int ready = ::poll(fds, count, static_cast<int>(std::min<int64_t>(left.count(), 1 << 30)));
        if (ready < 0 && errno != EINTR) return false;
        if (ready <= 0) continue;
        if (inAt >= 0 && fds[inAt].revents) {
            ssize_t n = ::write(in.get(), input.data(), input.size());
            if (n > 0) input.remove_prefix(static_cast<size_t>(n));
            // All written, or the child no longer reads: either way, end of input.
            if (input.empty() || (n < 0 && errno != EAGAIN && errno != EINTR)) in.reset();
        }
        if (outAt >= 0 && fds[outAt].revents && !readSome(child.output().get(), out)) child.output().reset();
        if (errAt >= 0 && fds[errAt].revents && !readSome(child.errorOutput().get(), err))
            child.errorOutput().reset();
    }
    in.reset();
    return true;
}

// What a finished run gives: its output, or nothing with the reason logged.
std::optional<std::string> outcome(std::optional<int> status, double timeout, const std::string& out,
                                   const std::string& err) {
    if (!status) {
        log("osascript timed out after " + std::to_string(static_cast<long long>(timeout)) + "s");
        return std::nullopt;
    }
    if (!WIFEXITED(*status) || WEXITSTATUS(*status) != 0) {
        log("osascript error: " + (isValidUtf8(err) ? err : std::string()));
        return std::nullopt;
    }
    return isValidUtf8(out) ? out : std::string();
}

}  // namespace

std::optional<std::string> runAppleScript(std::string_view script, double timeout) {
    // A time-out that is not a sensible number of seconds counts as none at all.
    if (!(timeout >= 0 && timeout < 1e6)) timeout = 0;
    if (Scripts::Host* host = currentHost.load()) {
        Scripts::Host::Run run = host->appleScript(script, timeout);
        std::optional<int> status;
        if (!run.timedOut) status = (run.exitStatus & 0xff) << 8;  // as waitpid reports an exit
        return outcome(status, timeout, run.out, run.err);
    }
    ignoreSigpipe();
    std::string interpreter = Scripts::tools().osascript;
    int error = 0;
    auto child = ChildProcess::start(interpreter, {"-"}, ChildProcess::Input::pipe, ChildProcess::ErrorOutput::pipe,
                                     error);
    if (!child) {
        log("osascript failed to start: " + std::string(std::strerror(error)) + " (" + interpreter + ")");
        return std::nullopt;
    }
    auto deadline = std::chrono::steady_clock::now() +
                    std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(timeout));
    std::string input = std::string(kPrologue) + std::string(script);
    std::string out, err;
    std::optional<int> status;
    if (exchange(*child, input, out, err, deadline)) status = child->waitUntil(deadline);
    if (!status) child->terminateInBackground();
    return outcome(status, timeout, out, err);
}

namespace Scripts {

std::string shell(const std::string& path, const std::vector<std::string>& arguments) {
    if (Host* host = currentHost.load()) {
        std::string out = host->tool(path, arguments);
        return isValidUtf8(out) ? out : std::string();
    }
    ignoreSigpipe();
    int error = 0;
    auto child = ChildProcess::start(path, arguments, ChildProcess::Input::inherit, ChildProcess::ErrorOutput::discard,
                                     error);
    if (!child) return {};
    std::string out;
    while (readSome(child->output().get(), out)) {
    }
    child->output().reset();
    child->wait();
    return isValidUtf8(out) ? out : std::string();
}

Tools tools() {
    std::lock_guard lock(toolsMutex);
    return currentTools;
}

void setToolsForTesting(Tools tools) {
    std::lock_guard lock(toolsMutex);
    currentTools = std::move(tools);
}

void setHostForTesting(Host* host) { currentHost.store(host); }

}  // namespace Scripts

}  // namespace tarnwick
