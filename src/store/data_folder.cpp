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

const std::filesystem::path& supportDir() {
    static const std::filesystem::path folder = [] {
        auto location = snapshotFolderLocation();
        if (!location) invariantFailed("no folder for application data in the user's home");
        return prepareFolder(*location);
    }();
    return folder;
}

const std::filesystem::path& logURL() {
    static const std::filesystem::path file = [] {
        auto location = logFileLocation();
        if (!location) invariantFailed("no folder for logs in the user's home");
        return *location;
    }();
    return file;
}

const std::filesystem::path& homeDirectory() {
    static const std::filesystem::path home = [] {
        auto location = homeLocation();
        if (!location) invariantFailed("the user has no home directory");
        return *location;
    }();
    return home;
}

}  // namespace tarnwick
