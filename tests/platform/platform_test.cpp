// installPlatform and platform(): one backend at a time, and none is an error.
#include "platform/platform.h"
#include "support/sim_desktop.h"

#include <gtest/gtest.h>

namespace tarnwick {
namespace {

using testing::ScopedPlatform;
using testing::SimDesktop;

TEST(Platform, InstallReturnsTheBackendItReplaces) {
    SimDesktop first;
    SimDesktop second;
    Platform* original = installPlatform(&first);
    EXPECT_EQ(&platform(), &first);
    EXPECT_EQ(installPlatform(&second), &first);
    EXPECT_EQ(&platform(), &second);
    EXPECT_EQ(installPlatform(original), &second);
}

TEST(Platform, ScopedPlatformPutsThePreviousBackendBack) {
    Platform* before = &platform();
    SimDesktop scoped;
    {
        ScopedPlatform installed(scoped);
        EXPECT_EQ(&platform(), &scoped);
    }
    EXPECT_EQ(&platform(), before);
}

TEST(PlatformDeathTest, UsingTheSeamWithNoBackendStopsTheProcess) {
    EXPECT_DEATH(
        {
            installPlatform(nullptr);
            platform().homeDirectory();
        },
        "tarnwick: broken invariant: no desktop backend is installed");
}

TEST(Platform, HandlesShareTheirReferenceAndReleaseItOnce) {
    int released = 0;
    {
        Element first(std::shared_ptr<const void>(&released, [&](const void*) { ++released; }));
        Element copy = first;
        EXPECT_EQ(copy.get(), first.get());
        EXPECT_TRUE(static_cast<bool>(copy));
    }
    EXPECT_EQ(released, 1);
    EXPECT_FALSE(static_cast<bool>(Element()));
    EXPECT_FALSE(static_cast<bool>(App()));
}

}  // namespace
}  // namespace tarnwick
