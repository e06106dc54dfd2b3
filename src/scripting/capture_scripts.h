// Capture scripts: browser tabs, Finder folders and terminal directories, read through AppleScript.
#pragma once

#include "model/snapshot.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwick::Scripts {

// Each runs its script (20 s time-out) and parses the listing: nothing when the
// run failed, an empty list when the application is not running.
std::optional<std::vector<ScriptedWindow>> captureChromium(const std::string& bundleID);  // incognito left out
std::optional<std::vector<ScriptedWindow>> captureSafari();
std::optional<std::vector<ScriptedWindow>> captureFinder();
std::optional<std::vector<ScriptedWindow>> captureTerminal();  // each window's shell directory
std::optional<std::vector<ScriptedWindow>> captureITerm();

// The working directory of the first shell on a terminal device ("/dev/ttys003"),
// found with ps and lsof; nothing when there is no known shell or directory.
std::optional<std::string> cwdOfTTY(const std::string& tty);

// The script texts, as the functions above run them.
std::string captureChromiumScript(const std::string& bundleID);
std::string captureSafariScript();
std::string captureFinderScript();
std::string captureTerminalScript();
std::string captureITermScript();

// The process number of the first shell in `ps -o pid=,comm=` output.
std::optional<std::string> shellPidFromPs(std::string_view psOutput);
// The directory in `lsof -Fn` output: the first "n" line without its "n".
std::optional<std::string> cwdFromLsof(std::string_view lsofOutput);

}  // namespace tarnwick::Scripts
