// writeFileAtomically on POSIX: mkstemp, write, fsync, rename, fsync of the folder.
#include "store/atomic_file.h"

#include "model/unique_fd.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <vector>

namespace tarnwick {

namespace {

std::string describe(const char* what, const std::filesystem::path& path, int code) {
    return std::string(what) + " " + path.string() + ": " + std::strerror(code);
}

// Flushes a file's data to the disk itself.
bool flushToDisk(int fd) {
#if defined(__APPLE__)
    // HACK: fsync on macOS only reaches the drive's cache; F_FULLFSYNC asks the
    // drive to write through. Not every file system supports it, hence the fallback.
    if (::fcntl(fd, F_FULLFSYNC) == 0) return true;
#endif
    return retryOnEintr([&] { return ::fsync(fd); }) == 0;
}

// Removes the temporary file on every path that does not rename it.
struct TemporaryFile {
    std::string path;
    bool keep = false;
    ~TemporaryFile() {
        if (!path.empty() && !keep) ::unlink(path.c_str());
    }
};

}  // namespace

bool writeFileAtomically(const std::filesystem::path& path, std::string_view bytes, std::string& error) {
    std::filesystem::path folder = path.parent_path();
    // Hidden and without the ".json" extension, so listings never pick it up.
    std::string pattern = (folder / ("." + path.filename().string() + ".XXXXXX")).string();
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');

    UniqueFd fd(retryOnEintr([&] { return ::mkostemp(name.data(), O_CLOEXEC); }));
    if (!fd) {
        error = describe("could not create a temporary file in", folder, errno);
        return false;
    }
    TemporaryFile temporary{name.data()};
    // mkstemp makes it 0600 less the umask; a snapshot is for the user alone,
    // and readable by the user whatever the umask.
    ::fchmod(fd.get(), 0600);
    if (!writeAll(fd.get(), bytes)) {
        error = describe("could not write", temporary.path, errno);
        return false;
    }
    if (!flushToDisk(fd.get())) {
        error = describe("could not flush", temporary.path, errno);
        return false;
    }
    if (::close(fd.release()) != 0 && errno != EINTR) {
        error = describe("could not close", temporary.path, errno);
        return false;
    }
    if (::rename(temporary.path.c_str(), path.c_str()) != 0) {
        error = describe("could not move the new file to", path, errno);
        return false;
    }
    temporary.keep = true;
    // Makes the rename itself durable. The new file is in place already, so a
    // failure here is not reported as a failed write.
    UniqueFd dir(retryOnEintr([&] { return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (dir) flushToDisk(dir.get());
    return true;
}

}  // namespace tarnwick
