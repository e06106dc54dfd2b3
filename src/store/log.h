// log(): one time-stamped line appended to the log file.
#pragma once

#include "model/snapshot.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace tarnwick {

// Appends "<UTC time stamp> <message>\n" to the log file. Never fails visibly:
// a line that cannot be written is dropped. Safe from any thread.
void log(std::string_view message);

// The line as `log` writes it at `now`: "2026-03-14T09:26:53Z message\n".
std::string logLine(Date now, std::string_view message);

// Appends the line to `file`, creating the file when it is missing, in one
// write so lines from different threads do not tear. Errors are ignored.
void appendLogLine(const std::filesystem::path& file, std::string_view line);

}  // namespace tarnwick
