// Programs a desktop of the tests starts, each the leader of a process group
// of its own, so that what it starts in turn is ended with it.
#pragma once

#include "scripting/child_process.h"

#include <optional>
#include <string>
#include <vector>

namespace tarnwick::testing {

// Starts the command (its first word a path) in a group of its own that dies
// with the test process, even when that is killed outright; nothing, with
// the reason in `why`, when it cannot start.
std::optional<ChildProcess> startGroup(const std::vector<std::string>& command, std::string& why);

// Ends a process group: politely, then outright; reaps its leader.
void stopGroup(ChildProcess& child);

// The first line the program writes on its standard output; nothing when it
// closes the output first.
std::optional<std::string> firstLine(UniqueFd& fd);

// Kills every process of this user whose environment names this Wayland
// display: the programs a restore started on it, which are no children of
// the test's.
void endProgramsOn(const std::string& waylandDisplay);

}  // namespace tarnwick::testing
