// Process entry: the one-shot modes and the menu-bar (or tray) application.
#include "main/entry.h"
#include "model/printable.h"
#include "platform/platform.h"

#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#if defined(__APPLE__)
#include "app/application.h"
#include "platform/mac/platform_mac.h"
#else
#include "main/desktop.h"
#endif

int main(int argc, char** argv) {
    // A write past the file-size limit then fails with EFBIG, which a save
    // reports, instead of killing the process and leaving its temporary file.
    std::signal(SIGXFSZ, SIG_IGN);
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
    // The tray application is a program of its own, so that the one-shot
    // modes never load Qt and its libraries (most of their start-up time).
    if (choice.mode == tarnwick::Entry::Mode::application) return tarnwick::Entry::startTray(argv);
    // The one place a backend is chosen: everything after this reaches the
    // desktop through it.
    std::string why;
    auto backend = tarnwick::Entry::openDesktop(tarnwick::Entry::Session::current(), why);
    if (!backend) {
        // Capturing without a desktop would write an empty session over nothing.
        std::fprintf(stderr, "tarnwick: %s; capture and restore need an X11 desktop or KDE Plasma on Wayland\n",
                     tarnwick::printable(why).c_str());
        return 2;
    }
    tarnwick::installPlatform(backend.get());
    auto status = tarnwick::Entry::onDesktop(choice, target);
    tarnwick::installPlatform(nullptr);
    return status.value_or(0);
#endif
}
