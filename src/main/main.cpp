// Process entry: the one-shot modes and the menu-bar (or tray) application.
#include "app/application.h"
#include "main/entry.h"
#include "platform/platform.h"

#include <cstdio>
#include <string>
#include <vector>

#if defined(__APPLE__)
#include "session/platform_mac.h"
#else
#include "session/platform_x11.h"
#endif

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv, argv + argc);
    auto choice = tarnwick::Entry::choose(arguments);
    // What needs no desktop runs, and a snapshot named is read, before one is
    // looked for: a missing file is reported as such, whatever the display.
    std::optional<tarnwick::Snapshot> target;
    if (auto status = tarnwick::Entry::beforeDesktop(choice, target)) return *status;
#if defined(__APPLE__)
    // The one place a backend is chosen: everything after this reaches the
    // desktop through it.
    tarnwick::installPlatform(&tarnwick::macPlatform());
    if (auto status = tarnwick::Entry::onDesktop(choice, target)) return *status;
    return tarnwick::MenuBar::runApplication(argc, argv);
#else
    std::string why;
    auto backend = tarnwick::openX11Platform("", why);
    if (!backend) {
        // Capturing without a desktop would write an empty session over nothing.
        std::fprintf(stderr, "tarnwick: %s; capture and restore need an X11 desktop\n", why.c_str());
        return 2;
    }
    tarnwick::installPlatform(backend.get());
    auto status = tarnwick::Entry::onDesktop(choice, target);
    if (!status) status = tarnwick::MenuBar::runApplication(argc, argv);
    tarnwick::installPlatform(nullptr);
    return *status;
#endif
}
