// supportDir and logURL: located once per process, thread-safely.
#include "store/data_folder.h"

#include "model/invariant.h"

#include <system_error>

namespace tarnwick {

std::filesystem::path prepareFolder(const std::filesystem::path& folder) {
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
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
        prepareFolder(required(snapshotFolderLocation(), "no folder for application data in the user's home"));
    return folder;
}

const std::filesystem::path& logURL() {
    static const std::filesystem::path file = required(logFileLocation(), "no folder for logs in the user's home");
    return file;
}

}  // namespace tarnwick
