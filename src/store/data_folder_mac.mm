// Data and log locations on macOS, from the file manager.
#include "store/data_folder.h"

#import <Foundation/Foundation.h>

#if !defined(__APPLE__)
#error "data_folder_mac.mm is for macOS"
#endif

namespace tarnwick {

namespace {

// The first URL the file manager gives for a directory in the user's domain.
std::optional<std::filesystem::path> userDirectory(NSSearchPathDirectory directory) {
    @autoreleasepool {
        NSArray<NSURL*>* urls = [[NSFileManager defaultManager] URLsForDirectory:directory
                                                                       inDomains:NSUserDomainMask];
        NSURL* first = urls.firstObject;
        if (first == nil || first.path == nil) return std::nullopt;
        return std::filesystem::path(first.path.UTF8String);
    }
}

}  // namespace

std::optional<std::filesystem::path> snapshotFolderLocation() {
    auto base = userDirectory(NSApplicationSupportDirectory);
    if (!base) return std::nullopt;
    return *base / "Tarnwick" / "snapshots";
}

std::optional<std::filesystem::path> logFileLocation() {
    auto base = userDirectory(NSLibraryDirectory);
    if (!base) return std::nullopt;
    return *base / "Logs" / "Tarnwick.log";
}

}  // namespace tarnwick
