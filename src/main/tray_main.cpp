// The tray application's program on Linux, started by "tarnwick" without a
// mode (or by the desktop's autostart), so that Qt is loaded only here.
#include "app/application.h"
#include "model/printable.h"
#include "platform/platform.h"
#include "session/platform_x11.h"

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    std::string why;
    auto backend = tarnwick::openX11Platform("", why);
    if (!backend) {
        std::fprintf(stderr, "tarnwick: %s; the tray application needs an X11 desktop\n",
                     tarnwick::printable(why).c_str());
        return 2;
    }
    tarnwick::installPlatform(backend.get());
    int status = tarnwick::MenuBar::runApplication(argc, argv);
    tarnwick::installPlatform(nullptr);
    return status;
}
