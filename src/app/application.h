// The menu-bar application's start: AppKit's status item on macOS, a tray
// icon on a Linux desktop.
#pragma once

namespace tarnwick::MenuBar {

// Starts the application (a status item or tray icon and its menu, no main
// window) and runs its event loop until it terminates; returns the exit status.
// The desktop backend must be installed.
int runApplication(int argc, char** argv);

}  // namespace tarnwick::MenuBar
