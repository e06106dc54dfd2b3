// The texts the application writes to the log and shows in its alerts.
#pragma once

#include "app/shell.h"
#include "model/snapshot.h"
#include "session/restore.h"

#include <optional>
#include <string>
#include <vector>

namespace tarnwick::MenuBar {

// The Accessibility page of the Privacy & Security settings.
inline constexpr const char* accessibilitySettingsURL =
    "x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility";

// How many problems the report alert lists; the log line has them all.
inline constexpr size_t problemsShown = 12;

// A date as "2026-11-15 23:56:09 +0000", the form the launch line gives the boot time in.
std::string plainDateText(Date date);

// "save (auto): 5 apps · 12 windows", with " — unchanged, skipped" when nothing was written.
std::string saveLine(const std::string& reason, const Snapshot& snapshot, bool written);

// ["first", "with \"quotes\""]: each text quoted with backslash escapes, ", " between.
std::string bracketedList(const std::vector<std::string>& texts);

// "restore: launched 1, windows 4, tabs 9, problems [...]".
std::string restoreLine(const Restore::Result& result);

// The warning before a restore without Accessibility: "Restore anyway" first, then "Open Settings".
Alert accessibilityWarning();

// Before restoring a snapshot that this user's Tarnwick did not save, which
// names programs to start: "Restore without them" first, then "Start them too",
// then "Cancel", which restores nothing.
Alert foreignSnapshotQuestion(const std::vector<std::string>& starts);

// A Mac's: Finder, Accessibility and its settings page.
SystemTexts macTexts();
// A Linux desktop's: its file manager, and a window manager that follows EWMH.
SystemTexts linuxTexts();

// The alert that ends a restore: what was put back and the first problems.
Alert restoreReport(const Restore::Result& result);

}  // namespace tarnwick::MenuBar
