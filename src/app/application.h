// The menu-bar application's start: AppKit's status item on macOS, a tray
// icon on a Linux desktop.
#pragma once

#if !defined(__APPLE__)
#include <string>
#endif

namespace tarnwick::MenuBar {

// Starts the application (a status item or tray icon and its menu, no main
// window) and runs its event loop until it terminates; returns the exit status.
// The desktop backend must be installed.
int runApplication(int argc, char** argv);

#if !defined(__APPLE__)
// The same on a desktop whose windows Tarnwick cannot reach (a Wayland
// compositor it does not serve), with no backend installed: the icon and its
// menu still show, so that a user sees why nothing is saved instead of a
// program that vanished; the menu gives `unavailable` as the reason, and
// nothing is saved or restored.
int runApplication(int argc, char** argv, const std::string& unavailable);
#endif

}  // namespace tarnwick::MenuBar
