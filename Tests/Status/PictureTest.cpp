#include "Tests/Status/StatusTabTest.h"

#include <QApplication>
#include <QPalette>

namespace kelvane::tests {
namespace {

// With a folder in KELVANE_PICTURES, takes pictures of the tab into it, for people to look at.
class Pictures : public StatusTabTest {
protected:
    void SetUp() override {
        if (::getenv("KELVANE_PICTURES") == nullptr)
            GTEST_SKIP() << "KELVANE_PICTURES names no folder";
        showTab();
    }
    void take(const std::string& name, double scale = 1) const {
        QWidget& shown = sheet() ? *sheet() : *tab->view();
        QPixmap picture(shown.size() * scale);
        picture.setDevicePixelRatio(scale);
        shown.render(&picture);
        EXPECT_TRUE(picture.save(QString(::getenv("KELVANE_PICTURES")) + "/" + name.c_str() + ".png"));
    }
};

TEST_F(Pictures, OfEachState) {
    take("0-first-start");
    connect();
    take("1-enabled");
    take("1-enabled-2x", 2);
    QPalette dark(QColor(45, 45, 48), QColor(45, 45, 48));
    dark.setColor(QPalette::Highlight, QColor(53, 132, 228));
    QApplication::setPalette(dark);
    take("2-dark");
    choose(2);
    take("3-warning-dark");
    QApplication::setPalette({});
    answer("Cancel");
    choose(1);
    take("4-paused");
    daemon.setState("isOverQuota", true);
    daemon.setState("isQuotaLimited", true);
    daemon.setState("serviceState", 17U);
    pane.isAuthorized = false;
    choose(0);
    poll();
    take("5-over-quota-locked");
    pane.isAuthorized = true;
    loseDaemon();
    take("6-disconnected");
    click("uninstallButton");
    take("7-uninstall");
    answer("Cancel");
    for (QWidget* const widget : tab->view()->findChildren<QWidget*>())
        if (const QString said = widget->property("text").toString(); !said.isEmpty())
            widget->setProperty("text", said + " und noch ein Zusatz von Donaudampfschifffahrtslänge");
    QCoreApplication::processEvents();
    take("8-long");
}

} // namespace
} // namespace kelvane::tests
