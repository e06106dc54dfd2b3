// readSnapshotFile: a snapshot file's bytes, read as if the file were hostile.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/stat.h>

namespace tarnwick {

// No snapshot comes near this: a large session is well under a megabyte. A
// file larger than this is not read at all.
inline constexpr size_t maxSnapshotFileSize = size_t{64} * 1024 * 1024;

// Why a file was not read.
struct FileProblem {
    std::string why;  // "not a regular file", "larger than 64 MiB", or the system's error text
    bool refused = false;  // the file is there but is not one we read: `why` says what it is
};

// Reads a whole snapshot file into `buffer`, followed by `padding` bytes the
// caller may use, and gives the text's length. Only a regular file of at most
// maxSnapshotFileSize bytes is read, opened without blocking, so a pipe, a
// device or a file that grows without end is refused at once and never read
// past the limit. Nothing, with the reason in `problem`, when it is not read.
// `read` receives what fstat said of the file read.
std::optional<size_t> readSnapshotFile(const std::filesystem::path& path, std::string& buffer, size_t padding,
                                       FileProblem* problem = nullptr, struct stat* read = nullptr);

}  // namespace tarnwick
