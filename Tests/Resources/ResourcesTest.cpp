// Tests of the built bundle.

#include "Platform/Bundle.h"
#include "Platform/PropertyListFile.h"

#include <QIcon>
#include <QImage>
#include <gtest/gtest.h>

namespace kelvane {
namespace {

constexpr int bulletPoints = 16;
constexpr const char* bullets[] = {"blue", "gray", "green-partial", "green", "red", "yellow"};

std::shared_ptr<const Bundle> pane() {
    return std::make_shared<Bundle>(std::string(KELVANE_PANE));
}

QImage bullet(const std::string& name) {
    return QImage(QString::fromStdString(pane()->resourcePath(name, "png").value_or("")));
}

// Whether the pixel is dark on a light background, judged by brightness alone.
bool isDark(QRgb pixel) {
    return qAlpha(pixel) > 127 && qGray(pixel) < 204;
}

int differentPixels(const QImage& one, const QImage& other) {
    int count = 0;
    for (int y = 0; y < one.height(); ++y)
        for (int x = 0; x < one.width(); ++x)
            count += isDark(one.pixel(x, y)) != isDark(other.pixel(x, y));
    return count;
}

TEST(Resources, AreRead) {
    const auto bundle = pane();
    EXPECT_EQ(bundle->error(), "");
    EXPECT_EQ(bundle->localizedString("kelvane", "", "MarketNames"), "Kelvane Online Backup");
    EXPECT_EQ(bundle->information("Open Account URL").stringValue(), "%1$@/account?computer=%2$@&email=%3$@");
    const Value options =
        readPropertyListFile(bundle->resourcePath("SkinOptions", "plist").value_or("")).value;
    EXPECT_EQ(options["bypassHelpSheetToWeb"], Value(false));
}

TEST(Resources, HaveEveryBulletTwiceAndEachInItsOwnShape) {
    for (const char* const name : bullets) {
        const QSize size(bulletPoints, bulletPoints);
        EXPECT_EQ(bullet(name).size(), size) << name;
        EXPECT_EQ(bullet(std::string(name) + "@2x").size(), size * 2) << name;
        for (const char* const other : bullets)
            if (other != name) {
                EXPECT_GE(differentPixels(bullet(name), bullet(other)), 24) << name << " and " << other;
            }
    }
}

TEST(Resources, HaveEveryIconThatThePaneAsksFor) {
    const auto bundle = pane();
    for (const char* const name : {"kelvane", "folder", "text-x-generic", "document", "drive-harddisk",
                                   "computer", "changes-prevent", "changes-allow"}) {
        const QIcon icon(QString::fromStdString(bundle->resourcePath(name, "svg").value_or("")));
        EXPECT_EQ(icon.pixmap(16).size(), QSize(16, 16)) << name;
    }
}

} // namespace
} // namespace kelvane
