#include "Tests/Browser/BrowserTest.h"

#include <QAccessible>
#include <QHelpEvent>
#include <QPainter>
#include <QStyleOptionViewItem>
#include <QToolTip>

namespace kelvane::tests {
namespace {

constexpr QSize bulletSize(12, 10);

// Every second line of pixels is transparent; at scale 2 it is a picture of its own.
QIcon stripedBullet() {
    QIcon icon;
    for (const int scale : {1, 2}) {
        QImage image(bulletSize * scale, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        for (int x = 0; x < image.width(); x += 2)
            for (int y = 0; y < image.height(); ++y)
                image.setPixelColor(x, y, scale == 1 ? Qt::red : Qt::blue);
        image.setDevicePixelRatio(scale);
        icon.addPixmap(QPixmap::fromImage(image));
    }
    return icon;
}

QImage drawn(const KelvaneBrowserCell& cell, int scale, bool isHighlighted) {
    QImage image(QSize(200, 30) * scale, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(scale);
    image.fill(Qt::green);
    QStyleOptionViewItem look;
    look.palette.setColor(QPalette::Base, Qt::yellow);
    look.palette.setColor(QPalette::Highlight, Qt::magenta);
    look.state.setFlag(QStyle::State_Selected, isHighlighted);
    QPainter painter(&image);
    cell.drawInteriorWithFrame({10, 5, 180, 20}, painter, look);
    return image;
}

TEST(BrowserCell, DrawsItsBulletUntintedAndSharpOnItsOwnGroundAndTheRestBesideIt) {
    QPixmap icon(16, 16);
    icon.fill(Qt::black);
    for (const int scale : {1, 2})
        for (const bool isHighlighted : {false, true}) {
            SCOPED_TRACE(testing::Message() << "scale " << scale << ", highlighted " << isHighlighted);
            KelvaneBrowserCell cell("title", "/a");
            cell.setImage(icon);
            QImage rest = drawn(cell, scale, isHighlighted).copy(10 * scale, 0, 150 * scale, 30 * scale);
            cell.setBulletImage(stripedBullet());
            QImage shown = drawn(cell, scale, isHighlighted);

            QImage expected(shown.size(), shown.format());
            expected.fill(Qt::green);
            for (QImage* const image : {&rest, &shown})
                image->setDevicePixelRatio(1);
            QPainter painter(&expected);
            painter.drawImage(QPoint(10 + bulletSize.width(), 0) * scale, rest);
            const QRect place(QPoint(10, 5) * scale, bulletSize * scale);
            painter.fillRect(place, isHighlighted ? Qt::magenta : Qt::yellow);
            for (int x = place.left(); x <= place.right(); x += 2)
                painter.fillRect(x, place.top(), 1, place.height(), scale == 1 ? Qt::red : Qt::blue);
            painter.end();
            EXPECT_EQ(shown, expected);
        }
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

TEST_F(ShownRows, LookOtherwiseOnTheWayToWhatIsChosen) {
    open({"Disk", "docs", "a.txt"});
    const QImage picture = browser->grab().toImage();
    const auto ground = [&](int column, const std::string& title) {
        const QListView& view = *browser->columnView(column);
        const QPoint place = view.visualRect(index(column, title)).topRight() + QPoint(-20, 9);
        return picture.pixelColor(view.viewport()->mapTo(browser.get(), place));
    };
    EXPECT_EQ(ground(2, "b.txt"), browser->palette().color(QPalette::Base));
    EXPECT_EQ(ground(2, "a.txt"), browser->palette().color(QPalette::Highlight));
    EXPECT_NE(ground(1, "docs"), ground(2, "a.txt"));
    EXPECT_NE(ground(1, "docs"), ground(2, "b.txt"));
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
