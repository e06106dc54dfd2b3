// The tray tests' own main: Qt's D-Bus client, through which they read the
// application's menu as a panel does, wants an application object.
#include <QCoreApplication>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    // This one runs no event loop: every call waits for its answer.
    QCoreApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
