// startGroup, stopGroup: setpriv and setsid around the program.
#include "support/process_group.h"

#include "platform/linux/launch.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace tarnwick::testing {

// setpriv sets the parent-death signal and setsid makes the group; both then
// become the program, which keeps their pid.
std::optional<ChildProcess> startGroup(const std::vector<std::string>& command, std::string& why) {
    auto setpriv = Launch::programPath("setpriv");
    auto setsid = Launch::programPath("setsid");
    if (!setpriv || !setsid) {
        why = "setpriv or setsid is missing";
        return std::nullopt;
    }
    std::vector<std::string> words{"--pdeathsig", "KILL", "--", *setsid, "--"};
    words.insert(words.end(), command.begin(), command.end());
    int error = 0;
    auto child = ChildProcess::start(*setpriv, words, ChildProcess::Input::inherit, ChildProcess::ErrorOutput::discard,
                                     error);
    if (!child) why = "cannot start " + command.front() + ": " + std::strerror(error);
    return child;
}

void stopGroup(ChildProcess& child) {
    ::kill(-child.pid(), SIGTERM);
    if (child.waitUntil(std::chrono::steady_clock::now() + std::chrono::seconds(5))) {
        ::kill(-child.pid(), SIGKILL);
        return;
    }
    ::kill(-child.pid(), SIGKILL);
    child.wait();
}

std::optional<std::string> firstLine(UniqueFd& fd) {
    std::string text;
    char c = 0;
    for (;;) {
        ssize_t n = ::read(fd.get(), &c, 1);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return std::nullopt;
        if (c == '\n') return text;
        text.push_back(c);
    }
}

void endProgramsOn(const std::string& waylandDisplay) {
    std::error_code error;
    for (auto it = std::filesystem::directory_iterator("/proc", error);
         !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
        std::string pid = it->path().filename().string();
        if (pid.empty() || pid.find_first_not_of("0123456789") != std::string::npos || std::stoi(pid) == ::getpid())
            continue;
        std::ifstream environ(it->path() / "environ", std::ios::binary);
        std::string variables((std::istreambuf_iterator<char>(environ)), std::istreambuf_iterator<char>());
        if (variables.find(std::string("WAYLAND_DISPLAY=") + waylandDisplay + '\0') != std::string::npos)
            ::kill(std::stoi(pid), SIGKILL);
    }
}

}  // namespace tarnwick::testing
