// Test entry: points HOME and the XDG folders at a private temporary folder, so
// no test can read or write the user's real snapshots or log, and installs a
// simulated desktop whose home is that folder. Tests that drive the desktop
// install their own for the time they run.
#include "support/sim_desktop.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    tarnwick::testing::TempDir home("tarnwick-home");
    setenv("HOME", home.path().c_str(), 1);
    setenv("XDG_DATA_HOME", (home.path() / "data").c_str(), 1);
    setenv("XDG_STATE_HOME", (home.path() / "state").c_str(), 1);
    tarnwick::testing::SimDesktop desktop;
    desktop.home = home.path().string();
    tarnwick::installPlatform(&desktop);
    int status = RUN_ALL_TESTS();
    tarnwick::installPlatform(nullptr);
    return status;
}
