// readBootTime on Linux: the "btime" line of /proc/stat.
#include "store/boot_time.h"

#include <fstream>
#include <sstream>
#include <string>

#if defined(__APPLE__)
#error "boot_time_linux.cpp is for Linux; macOS uses boot_time_mac.cpp"
#endif

namespace tarnwick {

std::optional<Date> readBootTime() {
    std::ifstream stat("/proc/stat");
    std::string line;
    while (std::getline(stat, line)) {
        if (line.rfind("btime ", 0) != 0) continue;
        std::istringstream fields(line.substr(6));
        long long seconds = 0;
        if (!(fields >> seconds) || seconds <= 0) return std::nullopt;
        return Date{std::chrono::seconds{seconds}};
    }
    return std::nullopt;
}

}  // namespace tarnwick
