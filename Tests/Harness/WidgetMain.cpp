#include <QApplication>
#include <cstdlib>
#include <gtest/gtest.h>

// Tests of widgets need no display, unless QT_QPA_PLATFORM names one.
int main(int argc, char* argv[]) {
    ::testing::InitGoogleTest(&argc, argv);
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication::setStyle("fusion");
    const QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
