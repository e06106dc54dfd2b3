// Test entry: points HOME and the XDG folders at a private temporary folder, so
// no test can read or write the user's real snapshots or log.
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    tarnwick::testing::TempDir home("tarnwick-home");
    setenv("HOME", home.path().c_str(), 1);
    setenv("XDG_DATA_HOME", (home.path() / "data").c_str(), 1);
    setenv("XDG_STATE_HOME", (home.path() / "state").c_str(), 1);
    return RUN_ALL_TESTS();
}
