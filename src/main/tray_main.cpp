// The tray application's program on Linux, started by "tarnwick" without a
// mode (or by the desktop's autostart), so that Qt is loaded only here.
#include "app/application.h"
#include "platform/platform.h"
#include "session/platform_x11.h"

#include <csignal>
#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    // A write past the file-size limit then fails with EFBIG, which a save
    // reports, instead of killing the process and leaving its temporary file.
    std::signal(SIGXFSZ, SIG_IGN);
    std::string why;
    auto backend = tarnwick::openX11Platform("", why);
    if (!backend) {
        std::fprintf(stderr, "tarnwick: %s; the tray application needs an X11 desktop\n", why.c_str());
        return 2;
    }
    tarnwick::installPlatform(backend.get());
    int status = tarnwick::MenuBar::runApplication(argc, argv);
    tarnwick::installPlatform(nullptr);
    return status;
}
