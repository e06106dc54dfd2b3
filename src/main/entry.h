// The process entry's choice of mode, and the two one-shot modes.
#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick::Entry {

enum class Mode {
    capture,      // print the session as JSON and exit
    restore,      // put a snapshot file back and exit
    application,  // the menu-bar application
};

struct Choice {
    Mode mode = Mode::application;
    std::string path;  // the snapshot file of the restore mode
};

// Reads the process arguments, the program's own path first. "--capture"
// anywhere wins; otherwise the first "--restore" that has an argument after it
// names the file; everything else starts the application.
Choice choose(const std::vector<std::string>& arguments);

// Prints the session as pretty JSON on `out` and "<summary>; accessibility on|off"
// on `err`. Returns the exit status, 0; an encoding failure stops the process.
int captureMode(std::FILE* out, std::FILE* err);

// Restores the snapshot file on this thread, printing progress, the counts and
// the problems on `out`. Returns the exit status, 0, also when there were
// problems; a file that cannot be read or is not a snapshot stops the process
// with a diagnostic on standard error.
int restoreMode(const std::string& path, std::FILE* out);

// Runs the one-shot mode the arguments ask for and returns its exit status;
// nothing when the application is to start. The desktop backend must be installed.
std::optional<int> runOneShot(const std::vector<std::string>& arguments);

}  // namespace tarnwick::Entry
