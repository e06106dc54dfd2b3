// readBootTime on macOS: sysctl KERN_BOOTTIME.
#include "store/boot_time.h"

#include <sys/sysctl.h>
#include <sys/time.h>

#if !defined(__APPLE__)
#error "boot_time_mac.cpp is for macOS"
#endif

namespace tarnwick {

std::optional<Date> readBootTime() {
    int name[2] = {CTL_KERN, KERN_BOOTTIME};
    struct timeval boot {};
    size_t size = sizeof boot;
    if (sysctl(name, 2, &boot, &size, nullptr, 0) != 0) return std::nullopt;
    auto since1970 = std::chrono::seconds{boot.tv_sec} + std::chrono::microseconds{boot.tv_usec};
    return Date{std::chrono::duration_cast<Date::duration>(since1970)};
}

}  // namespace tarnwick
