#include "Tests/Help/HelpTabTest.h"

#include <QApplication>
#include <QDialog>
#include <QPalette>
#include <QProgressBar>

namespace kelvane::tests {
namespace {

// With a folder in KELVANE_PICTURES, takes pictures of the tab and its sheets into it, for people to look at.
TEST_F(HelpTabTest, LooksWell) {
    const char* const folderOfPictures = ::getenv("KELVANE_PICTURES");
    if (folderOfPictures == nullptr)
        GTEST_SKIP() << "KELVANE_PICTURES names no folder";
    const ReportServer server("hang");
    tools.limits.transfer = 600ms;
    showTab();
    daemon.answer("serverURL", server.host);
    tab->view()->resize(640, 400);
    QPalette dark(QColor(45, 45, 48), QColor(45, 45, 48));
    dark.setColor(QPalette::Link, QColor(127, 180, 240));
    for (const int look : {3, 2, 1}) { // dark, twice as fine, plain
        QApplication::setPalette(look == 3 ? dark : QPalette());
        QCoreApplication::processEvents();
        const auto take = [&](QWidget& shown, const QString& name) {
            QPixmap picture(shown.size() * (look == 2 ? 2 : 1));
            picture.setDevicePixelRatio(look == 2 ? 2 : 1);
            shown.render(&picture);
            EXPECT_TRUE(picture.save(QString("%1/help-%2-%3.png").arg(folderOfPictures, name).arg(look)));
        };
        take(*tab->view(), "tab");
        click("helpButton");
        take(control("HelpWindow"), "choices");
        control<QDialog>("HelpWindow").reject();
        write("Since Tuesday nothing is backed up any more.\nIt says “Retry”.");
        take(control("EmailWindow"), "written");
        QTimer::singleShot(200, tab->view(),
                           [&] { take(*tab->view()->findChild<QProgressBar*>()->window(), "busy"); });
        click("emailButton");
    }
}

} // namespace
} // namespace kelvane::tests
