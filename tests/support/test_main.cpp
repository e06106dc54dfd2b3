// Test entry: points HOME and the XDG folders at a private temporary folder, so
// no test can read or write the user's real snapshots or log, sets the time
// zone and the boot time the tests see, and installs a simulated desktop whose
// home is that folder. Tests that drive the desktop install their own for the
// time they run.
#include "support/sim_desktop.h"
#include "support/temp_dir.h"
#include "store/store.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <ctime>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    tarnwick::testing::TempDir home("tarnwick-home");
    setenv("HOME", home.path().c_str(), 1);
    setenv("XDG_DATA_HOME", (home.path() / "data").c_str(), 1);
    setenv("XDG_STATE_HOME", (home.path() / "state").c_str(), 1);
    // The host's own would lead to its settings, its signing key and its lock.
    setenv("XDG_CONFIG_HOME", (home.path() / "config").c_str(), 1);
    std::filesystem::create_directories(home.path() / "runtime");
    std::filesystem::permissions(home.path() / "runtime", std::filesystem::perms::owner_all);
    setenv("XDG_RUNTIME_DIR", (home.path() / "runtime").c_str(), 1);
    // A zone of our own, half an hour off UTC and without summer time: local
    // and UTC dates differ, and an hour never repeats. Children inherit it.
    setenv("TZ", "<+0530>-05:30", 1);
    tzset();
    // A machine that booted a day ago, whenever the one running the tests did.
    tarnwick::Store::setBootTimeForTesting(std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()) -
                                           std::chrono::hours(24));
    tarnwick::testing::SimDesktop desktop;
    desktop.home = home.path().string();
    tarnwick::installPlatform(&desktop);
    int status = RUN_ALL_TESTS();
    tarnwick::installPlatform(nullptr);
    return status;
}
