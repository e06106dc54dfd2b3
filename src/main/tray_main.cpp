// The tray application's program on Linux, started by "tarnwick" without a
// mode (or by the desktop's autostart), so that Qt is loaded only here.
#include "app/application.h"
#include "app/instance_lock.h"
#include "model/printable.h"
#include "platform/platform.h"
#include "main/desktop.h"
#include "store/log.h"

#include <csignal>
#include <cstdio>
#include <optional>
#include <string>

int main(int argc, char** argv) {
    // A write past the file-size limit then fails with EFBIG, which a save
    // reports, instead of killing the process and leaving its temporary file.
    std::signal(SIGXFSZ, SIG_IGN);
    using tarnwick::MenuBar::InstanceLock;
    // One tray per user: a second start (a click in the launcher while the
    // autostarted one runs) leaves the running one alone.
    std::optional<InstanceLock> lock;
    if (auto file = tarnwick::MenuBar::instanceLockFile()) lock = InstanceLock::take(*file);
    if (lock && lock->outcome() == InstanceLock::Outcome::heldElsewhere) {
        std::fputs("tarnwick: Tarnwick is already running\n", stderr);
        return 0;
    }
    if (lock && lock->outcome() == InstanceLock::Outcome::unavailable)
        tarnwick::log("tray: no lock against a second start: " + tarnwick::printable(lock->reason()));

    std::string why, summary;
    auto session = tarnwick::Entry::Session::current();
    auto backend = tarnwick::Entry::openDesktop(session, why, summary);
    if (!backend && session.wayland()) {
        // A compositor Tarnwick does not serve still has a panel: the icon
        // shows, and its menu says why nothing is saved, where a program that
        // ended at once would leave the user guessing.
        std::fprintf(stderr, "tarnwick: %s; the tray application runs, but saves and restores nothing here\n",
                     tarnwick::printable(why).c_str());
        tarnwick::log("desktop: " + tarnwick::printable(why) + "; nothing is saved or restored");
        return tarnwick::MenuBar::runApplication(argc, argv, tarnwick::printable(summary));
    }
    if (!backend) {
        std::fprintf(stderr, "tarnwick: %s; the tray application needs an X11 desktop or KDE Plasma on Wayland\n",
                     tarnwick::printable(why).c_str());
        return 2;
    }
    tarnwick::installPlatform(backend.get());
    int status = tarnwick::MenuBar::runApplication(argc, argv);
    tarnwick::installPlatform(nullptr);
    return status;
}
