// tarnwick-sim: the program's command-line modes on a simulated desktop, for
// tests that run it as a process. Never installed.
#include "main/entry.h"
#include "support/sim_desktop_json.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    using namespace tarnwick;
    // A write past the file-size limit then fails with EFBIG, which a save
    // reports, instead of killing the process and leaving its temporary file.
    std::signal(SIGXFSZ, SIG_IGN);
    testing::SimDesktop desktop;
    if (const char* description = std::getenv("TARNWICK_SIM_DESKTOP")) {
        std::string error;
        if (!testing::loadDesktop(desktop, description, error)) {
            std::fprintf(stderr, "tarnwick-sim: unusable TARNWICK_SIM_DESKTOP: %s\n", error.c_str());
            return 2;
        }
    }
    installPlatform(&desktop);
    Scripts::setHostForTesting(&desktop);
    std::vector<std::string> arguments(argv, argv + argc);
    if (auto status = Entry::runOneShot(arguments)) return *status;
    std::fputs("tarnwick-sim: the menu-bar application does not run on the simulated desktop\n", stderr);
    return 3;
}
