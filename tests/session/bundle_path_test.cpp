// lastPathComponent and bundleFileStem: names from bundle paths.
#include "session/bundle_path.h"

#include <gtest/gtest.h>

namespace tarnwick {
namespace {

TEST(BundlePath, LastComponentIgnoresTrailingSlashes) {
    EXPECT_EQ(lastPathComponent("/Applications/Editor.app"), "Editor.app");
    EXPECT_EQ(lastPathComponent("/Applications/Editor.app//"), "Editor.app");
    EXPECT_EQ(lastPathComponent("Editor.app"), "Editor.app");
    EXPECT_EQ(lastPathComponent("/"), "/");
}

TEST(BundlePath, StemDropsOnlyTheLastExtension) {
    EXPECT_EQ(bundleFileStem("/Applications/Foo Bar.app"), "Foo Bar");
    EXPECT_EQ(bundleFileStem("/Applications/Version 2.1.app/"), "Version 2.1");
    EXPECT_EQ(bundleFileStem("/usr/local/bin/tool"), "tool");
    EXPECT_EQ(bundleFileStem("/Applications/.hidden"), ".hidden");
}

}  // namespace
}  // namespace tarnwick
