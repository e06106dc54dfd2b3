// InstanceLock: one tray application per user, held through a file lock that
// the kernel lets go of when the process ends, however it ends.
#pragma once

#include "model/unique_fd.h"

#include <filesystem>
#include <optional>
#include <string>

namespace tarnwick::MenuBar {

class InstanceLock {
public:
    enum class Outcome {
        held,         // this process is the one
        heldElsewhere,  // another process of this user runs the application
        unavailable,  // no lock file could be opened: the application runs unguarded
    };

    // Takes an exclusive lock on `file` without waiting, creating the file
    // and its folder. The descriptor is close-on-exec, so programs the
    // application launches never inherit the lock.
    static InstanceLock take(const std::filesystem::path& file);

    Outcome outcome() const { return outcome_; }
    // Why it is unavailable.
    const std::string& reason() const { return reason_; }

private:
    InstanceLock(Outcome outcome, UniqueFd fd, std::string reason)
        : outcome_(outcome), fd_(std::move(fd)), reason_(std::move(reason)) {}

    Outcome outcome_;
    UniqueFd fd_;
    std::string reason_;
};

// The tray application's lock file: in $XDG_RUNTIME_DIR, which is the user's
// own and emptied at log-out, else beside the log in Tarnwick's state folder.
std::optional<std::filesystem::path> instanceLockFile();

}  // namespace tarnwick::MenuBar
