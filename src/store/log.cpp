// The log: one line per event, no levels, no rotation.
#include "store/log.h"

#include "model/iso_date.h"
#include "store/data_folder.h"
#include "model/unique_fd.h"

#include <fcntl.h>
#include <sys/stat.h>
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
    UniqueFd fd(retryOnEintr([&] { return ::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600); }));
    if (!fd) return;
    // The log names the user's programs and folders: for the user's eyes only,
    // also when an older version or another umask made it readable to others.
    if (struct stat info {}; ::fstat(fd.get(), &info) == 0 && info.st_uid == ::geteuid() && (info.st_mode & 077))
        ::fchmod(fd.get(), info.st_mode & 07700);
    writeAll(fd.get(), line);
}

void log(std::string_view message) { appendLogLine(logURL(), logLine(std::chrono::system_clock::now(), message)); }

}  // namespace tarnwick
