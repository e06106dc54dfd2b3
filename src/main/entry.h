// The process entry's choice of mode, and the one-shot modes.
#pragma once

#include "model/snapshot.h"

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick::Entry {

enum class Mode {
    capture,      // print the session as JSON and exit
    restore,      // put a snapshot back and exit
    application,  // the menu-bar (or tray) application
    help,         // how to use the program
    version,      // the program's version
    list,         // the stored snapshots
    save,         // capture into the store, as the application's save does
    diff,         // what a restore would change, without changing it
    usage,        // arguments that ask for nothing known: say which and stop
};

struct Choice {
    Mode mode = Mode::application;
    // restore: a snapshot file, or "latest", "before-boot" or a position in
    // the list; diff: the same, empty for the newest.
    std::string path;
    std::string reason = "cli";  // save
    bool json = false;           // list: a machine-readable form
    // restore, diff: start the command lines and programs the snapshot names
    // even when this user's Tarnwick did not save it ("--trust").
    bool trust = false;
    std::string problem{};       // usage: the one line that says what is wrong
};

// Reads the process arguments, the program's own path first. "--capture"
// anywhere wins; otherwise the first "--restore" that has an argument after it
// names the snapshot (a "--restore" that ends the arguments counts as absent);
// otherwise the first of "--help" ("-h"), "--version", "--list" (with "--json"
// anywhere), "--save [REASON]" and "--diff [SNAPSHOT]"; no arguments at all
// start the application. An unknown option, a word no option takes, or an
// empty snapshot name or reason is a usage error, never the application.
Choice choose(const std::vector<std::string>& arguments);

// Prints the session as pretty JSON on `out` and "<summary>; accessibility on|off"
// (or "; window manager: NAME" where windows have one) on `err`. Returns 0; an
// encoding failure stops the process. When the display went away meanwhile,
// prints nothing on `out`, says so on `err` and returns displayLostStatus.
int captureMode(std::FILE* out, std::FILE* err);

// Restores the snapshot on this thread, printing progress, the counts and the
// problems on `out`. Returns 0, also when there were problems; when the display
// went away, says so on `err` and returns displayLostStatus.
int restoreMode(const Snapshot& snapshot, std::FILE* out, std::FILE* err);

// What the modes that need no desktop can do before one is opened: runs help,
// version and list, and reads the snapshot a restore or a diff names into
// `target`. The exit status when the process ends here: the mode ran, the
// snapshot named is not in the store (status 1), or the arguments are a usage
// error (status 2, one line on standard error). A file that cannot be read or
// is not a snapshot stops the process with a diagnostic on standard error.
std::optional<int> beforeDesktop(const Choice& choice, std::optional<Snapshot>& target);

// Runs a one-shot mode that works on the desktop, with the snapshot read by
// `beforeDesktop`; nothing when the application is to start. The desktop
// backend must be installed.
std::optional<int> onDesktop(const Choice& choice, const std::optional<Snapshot>& target);

#if !defined(__APPLE__)
// Becomes the tray program, tarnwick-tray, found beside this one (a build) or
// in ../libexec/tarnwick/ (an installation), with the same arguments: the same
// process goes on as the application. Returns only when it cannot, with
// status 2 and the reason on standard error.
int startTray(char** argv);
#endif

// Both, for a process whose desktop is installed from the start.
std::optional<int> runOneShot(const std::vector<std::string>& arguments);

}  // namespace tarnwick::Entry
