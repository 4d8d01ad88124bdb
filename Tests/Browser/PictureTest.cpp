#include "Tests/Browser/BrowserTest.h"

#include <QPainter>
#include <cstdlib>

namespace kelvane::tests {
namespace {

QIcon disc(const QColor& color) {
    QIcon icon;
    for (const int scale : {1, 2}) {
        QImage image(QSize(16, 16) * scale, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        image.setDevicePixelRatio(scale);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setBrush(color);
        painter.drawEllipse(QRectF(2.5, 2.5, 11, 11));
        painter.end();
        icon.addPixmap(QPixmap::fromImage(image));
    }
    return icon;
}

using Pictures = ColumnBrowserTest;

// KELVANE_PICTURES names a folder to look at them in; QT_SCALE_FACTOR=2 makes those of a fine screen.
TEST_F(Pictures, FollowThePaletteAndTheKeyboard) {
    folders.listing["/Volumes/Disk/docs"] = {"a report about everything that happened.pdf", "b", "c",
                                             "deep/"};
    open({"Disk", "docs", "a report about everything that happened.pdf"});
    click(2, "c", Qt::ControlModifier);
    const QIcon bullets[] = {disc("#2b9a4b"), disc("#d8a200"), disc("#c9302c")};
    for (int column = 0; column <= 2; ++column)
        for (int row = 0; row < browser->rowCount(column); ++row)
            change(browser->rowAt(column, row), [&](auto& cell) { cell.setBulletImage(bullets[row % 3]); });
    for (const char* const name : {"light", "dark"}) {
        SCOPED_TRACE(name);
        if (name == std::string_view("dark"))
            browser->setPalette(QPalette("#31363b", "#31363b"));
        const QImage picture = browser->grab().toImage();
        const auto ground = [&](int column, const std::string& title) {
            const QListView& view = *browser->columnView(column);
            const QPoint place = view.visualRect(index(column, title)).topRight() + QPoint(-20, 9);
            return picture.pixelColor(view.viewport()->mapTo(browser.get(), place) *
                                      picture.devicePixelRatio());
        };
        EXPECT_EQ(ground(2, "b"), browser->palette().color(QPalette::Base));
        EXPECT_EQ(ground(2, "c"), browser->palette().color(QPalette::Highlight));
        EXPECT_NE(ground(1, "docs"), ground(2, "b"));
        EXPECT_NE(ground(1, "docs"), ground(2, "c"));
        if (const char* const folder = std::getenv("KELVANE_PICTURES"))
            picture.save(QString("%1/browser-%2-%3.png").arg(folder, name).arg(picture.devicePixelRatio()));
    }
}

} // namespace
} // namespace kelvane::tests
