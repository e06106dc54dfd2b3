// InstanceLock on POSIX: flock(2) on a file of the user's.
#include "app/instance_lock.h"

#include "store/data_folder.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>

namespace tarnwick::MenuBar {

InstanceLock InstanceLock::take(const std::filesystem::path& file) {
    std::error_code ignored;
    std::filesystem::create_directories(file.parent_path(), ignored);
    UniqueFd fd(retryOnEintr([&] { return ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600); }));
    if (!fd) {
        int error = errno;
        return InstanceLock(Outcome::unavailable, {}, file.string() + ": " + std::strerror(error));
    }
    if (retryOnEintr([&] { return ::flock(fd.get(), LOCK_EX | LOCK_NB); }) == 0)
        return InstanceLock(Outcome::held, std::move(fd), {});
    int error = errno;
    if (error == EWOULDBLOCK) return InstanceLock(Outcome::heldElsewhere, {}, {});
    return InstanceLock(Outcome::unavailable, {}, file.string() + ": " + std::strerror(error));
}

std::optional<std::filesystem::path> instanceLockFile() {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime && runtime[0] == '/') return std::filesystem::path(runtime) / "Tarnwick" / "tray.lock";
    if (auto log = logFileLocation()) return log->parent_path() / "tray.lock";
    return std::nullopt;
}

}  // namespace tarnwick::MenuBar
