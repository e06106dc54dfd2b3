// supportDir and logURL: located once per process, thread-safely.
#include "store/data_folder.h"

#include "model/invariant.h"
#include "model/unique_fd.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <vector>

namespace tarnwick {

namespace {

// Takes every access for group and others away from a folder of ours; a folder
// we have just made gets exactly 0700, whatever the umask took from it.
void makePrivate(const std::filesystem::path& folder, bool made) {
    UniqueFd fd(retryOnEintr([&] { return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    struct stat info {};
    if (!fd || ::fstat(fd.get(), &info) != 0 || info.st_uid != ::geteuid()) return;
    mode_t mode = made ? mode_t{0700} : (info.st_mode & 07700);
    if ((info.st_mode & 07777) != mode) ::fchmod(fd.get(), mode);
}

}  // namespace

std::filesystem::path prepareFolder(const std::filesystem::path& folder, size_t own) {
    std::vector<std::filesystem::path> steps;
    std::filesystem::path at;
    for (const auto& part : folder) {
        if (part.empty()) continue;  // a trailing "/"
        at /= part;
        steps.push_back(at);
    }
    size_t firstOwn = steps.size() - std::min(own, steps.size());
    for (size_t i = 0; i < steps.size(); ++i) {
        // Not through the umask alone: the umask is the user's, and programs a
        // restore starts inherit it, so it is not changed.
        bool made = ::mkdir(steps[i].c_str(), 0700) == 0;
        if (!made && errno != EEXIST) return folder;  // what follows cannot be made either
        if (i >= firstOwn) makePrivate(steps[i], made);
    }
    return folder;
}

namespace {

// A location the system must have; a user without one cannot be served at all.
std::filesystem::path required(std::optional<std::filesystem::path> location, std::string_view missing) {
    if (!location) invariantFailed(missing);
    return *location;
}

}  // namespace

const std::filesystem::path& supportDir() {
    static const std::filesystem::path folder =
        prepareFolder(required(snapshotFolderLocation(), "no folder for application data in the user's home"), 2);
    return folder;
}

const std::filesystem::path& logURL() {
    static const std::filesystem::path file = required(logFileLocation(), "no folder for logs in the user's home");
    return file;
}

}  // namespace tarnwick
