// Starting an application that is not ours: the X11 backend's launch.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tarnwick::Launch {

// Starts `arguments` (the program looked up in PATH when it has no '/') as a
// process of its own: a new session, adopted by init rather than by us, with
// standard input and output on /dev/null, no descriptor of ours, and `folder`
// as its working folder. Returns once the program has been executed: its pid,
// or nothing with the reason in `why` ("No such file or directory"…).
// Where `name` is run from: itself when it holds a '/', else the first
// executable of that name in PATH.
std::optional<std::string> programPath(const std::string& name);

std::optional<pid_t> detached(const std::vector<std::string>& arguments, const std::string& folder,
                              std::string& why);

}  // namespace tarnwick::Launch
