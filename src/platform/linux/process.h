// What the system says of a process by its pid, for naming and relaunching
// applications that no desktop entry describes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick::Process {

// The executable's path; nothing for a process that is gone or not ours to read.
std::optional<std::string> executable(std::int32_t pid);

// The short command name the kernel keeps ("xlogo").
std::optional<std::string> commandName(std::int32_t pid);

// False once the process has exited, even while its parent has yet to reap it.
bool alive(std::int32_t pid);

// The words it was started with (/proc/PID/cmdline); nothing when unreadable or empty.
std::optional<std::vector<std::string>> commandLine(std::int32_t pid);

// Its working folder; nothing when gone or not ours to read.
std::optional<std::string> workingDirectory(std::int32_t pid);

// The processes whose parent it is, by ascending pid.
std::vector<std::int32_t> children(std::int32_t pid);

}  // namespace tarnwick::Process
