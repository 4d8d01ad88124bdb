#include "Tests/Browser/BrowserTest.h"

#include <QAccessible>
#include <QHelpEvent>
#include <QPainter>
#include <QStyleOptionViewItem>
#include <QToolTip>

namespace kelvane::tests {
namespace {

constexpr QSize bulletSize(12, 10);

// A red image, and for scale 2 a separate blue one, whose left half is transparent.
QIcon halfBullet() {
    QIcon icon;
    for (const int scale : {1, 2}) {
        QImage image(bulletSize * scale, QImage::Format_ARGB32_Premultiplied);
        image.fill(scale == 1 ? Qt::red : Qt::blue);
        QPainter painter(&image);
        painter.setCompositionMode(QPainter::CompositionMode_Clear);
        painter.fillRect(0, 0, image.width() / 2, image.height(), Qt::transparent);
        painter.end();
        image.setDevicePixelRatio(scale);
        icon.addPixmap(QPixmap::fromImage(image));
    }
    return icon;
}

TEST(BrowserCell, DrawsItsBulletUntintedAndSharpOnItsOwnGround) {
    KelvaneBrowserCell cell("title", "/a");
    cell.setBulletImage(halfBullet());
    for (const int scale : {1, 2})
        for (const bool isHighlighted : {false, true}) {
            QImage image(QSize(200, 30) * scale, QImage::Format_ARGB32_Premultiplied);
            image.setDevicePixelRatio(scale);
            image.fill(Qt::green);
            QStyleOptionViewItem look;
            look.palette.setColor(QPalette::Base, Qt::yellow);
            look.palette.setColor(QPalette::Highlight, Qt::magenta);
            look.state.setFlag(QStyle::State_Selected, isHighlighted);
            QPainter painter(&image);
            cell.drawInteriorWithFrame({10, 5, 180, 20}, painter, look);
            EXPECT_EQ(image.pixelColor(QPoint(12, 8) * scale), isHighlighted ? Qt::magenta : Qt::yellow);
            EXPECT_EQ(image.pixelColor(QPoint(20, 8) * scale), scale == 1 ? Qt::red : Qt::blue);
        }
}

// The icon is placed after the bullet, which would otherwise cover it.
TEST(BrowserCell, DrawsItsIconBesideItsBullet) {
    QPixmap black(16, 16);
    black.fill(Qt::black);
    const auto firstColumnOf = [&](const QIcon& bullet, QRgb colour) {
        KelvaneBrowserCell cell("", "/a");
        cell.setImage(black);
        cell.setBulletImage(bullet);
        QImage image(200, 30, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::green);
        QPainter painter(&image);
        cell.drawInteriorWithFrame({10, 5, 180, 20}, painter, QStyleOptionViewItem());
        int x = 0;
        while (x < image.width() && image.pixel(x, 15) != colour)
            ++x;
        return x;
    };
    EXPECT_EQ(firstColumnOf(halfBullet(), qRgb(0, 0, 0)),
              firstColumnOf(QIcon(), qRgb(0, 0, 0)) + bulletSize.width());
}

class ShownRows : public ColumnBrowserTest {
protected:
    [[nodiscard]] std::string tip(int row) {
        QListView& view = *browser->columnView(1);
        const QPoint place = view.visualRect(browser->rowAt(1, row)).center();
        QHelpEvent event(QEvent::ToolTip, place, view.viewport()->mapToGlobal(place));
        QApplication::sendEvent(view.viewport(), &event);
        return QToolTip::text().toStdString();
    }
};

TEST_F(ShownRows, AreTheOnlyOnesThatAnIconIsAskedFor) {
    std::vector<std::string>& disk = folders.listing["/Volumes/Disk"];
    disk.resize(10'000, "file");
    open({"Disk"});
    (void)browser->grab();
    const auto asked = folders.imagesAskedFor;
    EXPECT_EQ(asked.at("old.txt"), 1);
    EXPECT_LT(asked.at("file"), 30);
    disk[2] = "old.txt"; // enabled now
    browser->reloadColumn(1);
    (void)browser->grab();
    EXPECT_EQ(folders.imagesAskedFor, asked);
    EXPECT_FALSE(browser->cell(1, 2)->image().isNull());
}

TEST_F(ShownRows, SayTheirStateToAScreenReader) {
    folders.listing["/Volumes/Disk"].resize(10'000, "file");
    browser->setTitle("Files to back up");
    open({"Disk"});
    change(browser->rowAt(1, 3), [](auto& cell) { cell.setStateText("Backed up"); });

    QAccessibleInterface* const columns = QAccessible::queryAccessibleInterface(browser->widget());
    std::vector<QAccessibleInterface*> lists;
    for (int child = 0; child < columns->childCount(); ++child)
        if (columns->child(child)->role() == QAccessible::List)
            lists.push_back(columns->child(child));
    ASSERT_EQ(lists.size(), 2);
    EXPECT_EQ(lists[0]->text(QAccessible::Name), "Files to back up");
    EXPECT_EQ(lists[1]->text(QAccessible::Name), "Disk");
    EXPECT_EQ(lists[1]->childCount(), 10'000);
    EXPECT_EQ(lists[1]->child(3)->text(QAccessible::Name), "notes.txt, Backed up");
    EXPECT_EQ(lists[1]->child(9'999)->text(QAccessible::Name), "file");
}

TEST_F(ShownRows, AreMissedInWordsWhereThereAreNone) {
    const QListView& first = *browser->columnView(0);
    browser->setEmptyText("Nothing here");
    browser->reloadColumn(0);
    const QImage withRows = browser->grab().toImage();
    EXPECT_EQ(first.accessibleDescription(), "");
    folders.listing["/Volumes"].clear();
    browser->reloadColumn(0);
    const QImage withWords = browser->grab().toImage();
    EXPECT_EQ(first.accessibleDescription(), "Nothing here");
    browser->setEmptyText("");
    browser->reloadColumn(0);
    EXPECT_NE(browser->grab().toImage(), withWords);
    folders.listing["/Volumes"] = {"Disk/", "Other/"};
    browser->reloadColumn(0);
    EXPECT_EQ(browser->grab().toImage(), withRows);
}

TEST_F(ShownRows, SayInATipWhatCannotBeSeen) {
    const std::string longName = "<b>" + std::string(200, 'n') + "\n.txt";
    folders.listing["/Volumes/Disk"] = {"short", longName};
    open({"Disk"});
    const std::string escaped = "&lt;b&gt;" + std::string(200, 'n') + "\uFFFD.txt";
    EXPECT_EQ(tip(0), "");
    EXPECT_EQ(tip(1), "<p>" + escaped + "</p>");
    for (const int row : {0, 1})
        change(browser->rowAt(1, row), [](auto& cell) { cell.setStateText("Backed up"); });
    EXPECT_EQ(tip(0), "<p>Backed up</p>");
    EXPECT_NE(tip(1).find(escaped + "<br"), std::string::npos) << tip(1);
}

} // namespace
} // namespace kelvane::tests
