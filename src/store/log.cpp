// The log: one line per event, no levels, no rotation.
#include "store/log.h"

#include "model/iso_date.h"
#include "store/data_folder.h"
#include "store/unique_fd.h"

#include <fcntl.h>
#include <unistd.h>

namespace tarnwick {

std::string logLine(Date now, std::string_view message) {
    std::string line = isoDateText(now).value_or("0000-00-00T00:00:00Z");
    line += ' ';
    line += message;
    line += '\n';
    return line;
}

void appendLogLine(const std::filesystem::path& file, std::string_view line) {
    // O_APPEND makes each write land at the end even with concurrent writers;
    // O_CREAT covers the first line ever.
    UniqueFd fd(retryOnEintr([&] { return ::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644); }));
    if (!fd) return;
    writeAll(fd.get(), line);
}

void log(std::string_view message) { appendLogLine(logURL(), logLine(std::chrono::system_clock::now(), message)); }

}  // namespace tarnwick
