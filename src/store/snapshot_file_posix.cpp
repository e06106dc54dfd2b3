// readSnapshotFile on POSIX: open without blocking, fstat, read at most the limit.
#include "store/snapshot_file.h"

#include "model/unique_fd.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fcntl.h>

namespace tarnwick {

namespace {

std::string limitText() { return "larger than " + std::to_string(maxSnapshotFileSize / (1024 * 1024)) + " MiB"; }

std::nullopt_t fail(FileProblem* problem, std::string why, bool refused) {
    if (problem) *problem = FileProblem{std::move(why), refused};
    return std::nullopt;
}
std::nullopt_t systemError(FileProblem* problem) { return fail(problem, std::strerror(errno), false); }
std::nullopt_t refuse(FileProblem* problem, std::string why) { return fail(problem, std::move(why), true); }

}  // namespace

std::optional<size_t> readSnapshotFile(const std::filesystem::path& path, std::string& buffer, size_t padding,
                                       FileProblem* problem, struct stat* read) {
    // Not blocking: opening a pipe with no writer would wait for one for ever.
    UniqueFd fd(retryOnEintr([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
    if (!fd) return systemError(problem);
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0) return systemError(problem);
    // A folder, a pipe or a device (/dev/zero never ends) is never read.
    if (!S_ISREG(info.st_mode)) return refuse(problem, "not a regular file");
    if (info.st_size < 0 || static_cast<std::uintmax_t>(info.st_size) > maxSnapshotFileSize)
        return refuse(problem, limitText());
    if (read) *read = info;
    // One byte more than the file, so the read that finds its end needs no
    // growth; never more than one byte past the limit, however the file grows.
    const size_t most = maxSnapshotFileSize + 1;
    size_t capacity = static_cast<size_t>(info.st_size) + 1;
    size_t filled = 0;
    for (;;) {
        if (buffer.size() < capacity + padding) buffer.resize(capacity + padding);
        ssize_t n = retryOnEintr([&] { return ::read(fd.get(), buffer.data() + filled, capacity - filled); });
        if (n < 0) return systemError(problem);
        if (n == 0) break;
        filled += static_cast<size_t>(n);
        if (filled > maxSnapshotFileSize) return refuse(problem, limitText());
        if (filled == capacity) capacity = std::min(most, capacity + std::max<size_t>(4096, capacity / 2));
    }
    return filled;
}

}  // namespace tarnwick
