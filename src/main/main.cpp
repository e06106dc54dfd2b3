// Process entry: the one-shot modes and, on a Mac, the menu-bar application.
#include <cstdio>

#if defined(__APPLE__)
#include "app/application.h"
#include "main/entry.h"
#include "platform/platform.h"
#include "session/platform_mac.h"

#include <string>
#include <vector>
#endif

int main(int argc, char** argv) {
#if defined(__APPLE__)
    // The one place a backend is chosen: everything after this reaches the
    // desktop through it.
    tarnwick::installPlatform(&tarnwick::macPlatform());
    if (auto status = tarnwick::Entry::runOneShot(std::vector<std::string>(argv, argv + argc))) return *status;
    return tarnwick::MenuBar::runApplication();
#else
    (void)argc;
    (void)argv;
    // Capture and restore need a desktop backend; this system has none yet, and
    // pretending to capture would write an empty session.
    std::fputs("tarnwick: no desktop backend on this system yet; capture and restore work on macOS only\n", stderr);
    return 2;
#endif
}
