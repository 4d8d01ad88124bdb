#include <QApplication>
#include <cstdlib>
#include <gtest/gtest.h>

// Widget tests need no display, unless QT_QPA_PLATFORM names one. When the launcher has started a private
// session bus, it also stands in for the system bus.
int main(int argc, char* argv[]) {
    ::testing::InitGoogleTest(&argc, argv);
    if (const char* const address = std::getenv("DBUS_SESSION_BUS_ADDRESS"))
        ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address, 1);
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication::setStyle("fusion");
    const QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
