#include "Tests/Browser/BrowserTest.h"

#include <QAccessible>
#include <QMouseEvent>
#include <QScrollBar>
#include <QSplitter>

namespace kelvane::tests {
namespace {

class Choosing : public ColumnBrowserTest {
protected:
    // The accessible actions on a row.
    void act(int column, const std::string& title) {
        QAccessible::queryAccessibleInterface(browser->columnView(column))
            ->child(index(column, title).row())
            ->actionInterface()
            ->doAction(QAccessibleActionInterface::toggleAction());
    }
};

TEST_F(Choosing, IsOneActionHoweverItIsDone) {
    const std::tuple<const char*, std::function<void()>, int, const char*, int, int> cases[] = {
        {"another", [this] { click(2, "b.txt"); }, 1, "docs/b.txt", 2, 2},
        {"a folder", [this] { click(2, "deep"); }, 1, "docs/deep", 3, 2},
        {"one more", [this] { click(2, "c.txt", Qt::ControlModifier); }, 1, "docs/a.txt docs/c.txt", 2, 2},
        {"two folders", [this] { click(1, "photos", Qt::ControlModifier); }, 1, "docs photos", 1, 1},
        {"what is open", [this] { click(1, "docs"); }, 1, "docs", 2, 1},
        {"what is disabled", [this] { click(1, "old.txt"); }, 0, "docs/a.txt", 2, 1},
        {"all", [this] { press(Qt::Key_A, Qt::ControlModifier); }, 1,
         "docs/a.txt docs/b.txt docs/c.txt docs/deep", 2, 2},
        {"down", [this] { press(Qt::Key_Down); }, 1, "docs/b.txt", 2, 2},
        {"left", [this] { press(Qt::Key_Left); }, 1, "docs", 2, 1},
        {"left of the first", [this] { click(0, "Disk"), press(Qt::Key_Left); }, 1, "", 1, 0},
        {"right of a file", [this] { press(Qt::Key_Right); }, 0, "docs/a.txt", 2, 2},
        {"and right again", [this] { press(Qt::Key_Left), press(Qt::Key_Right); }, 2, "docs/a.txt", 2, 2},
        {"by a screen reader", [this] { act(1, "plan.txt"); }, 1, "docs plan.txt", 1, 1},
    };
    for (const auto& [what, choose, actions, chosen, lastColumn, keyboardIn] : cases) {
        SCOPED_TRACE(what);
        open({"Disk", "docs", "a.txt"});
        choose();
        EXPECT_EQ(choices.size(), actions);
        EXPECT_EQ(selected(), chosen);
        EXPECT_EQ(browser->lastColumn(), lastColumn);
        EXPECT_EQ(columnWithKeyboard(), keyboardIn);
    }
}

TEST_F(Choosing, NeedsARowThatIsEnabled) {
    press(Qt::Key_Shift);
    EXPECT_EQ(choices.size(), 0) << "a key that chooses nothing";
    folders.listing["/Volumes/Disk"] = {"-old.txt"};
    click(0, "Disk");
    browser->columnView(1)->setFocus();
    choices.clear();
    press(Qt::Key_Down);
    EXPECT_EQ(choices.size(), 0);
    EXPECT_EQ(browser->selectedFilePaths(), std::vector<std::string>{"/Volumes/Disk"});
}

// A clicked column is visible already; one that gets the keyboard focus may have to be scrolled into view.
TEST_F(Choosing, RevealsTheColumnThatTheKeyboardComesTo) {
    open({"Disk", "docs", "deep"});
    browser->resize(250, 300);
    const QWidget& strip = *browser->findChild<QSplitter*>();
    EXPECT_LT(strip.width() - browser->columnView(3)->geometry().right(), 20) << "no empty room";
    QScrollBar& place = *browser->horizontalScrollBar();
    for (const Qt::FocusReason reason : {Qt::MouseFocusReason, Qt::OtherFocusReason}) {
        browser->columnView(3)->setFocus(reason);
        place.setValue(place.maximum());
        browser->columnView(0)->setFocus(reason);
        EXPECT_EQ(place.value() == 0, reason == Qt::OtherFocusReason);
    }
}

TEST_F(Choosing, LeavesRoomForAColumnThatIsDraggedWider) {
    open({"Disk"});
    auto& edge = *browser->findChild<QSplitter*>()->handle(1);
    const int before = browser->columnWidth(0);
    QTest::mousePress(&edge, Qt::LeftButton, {}, edge.rect().center());
    const QPoint target = edge.mapToGlobal(edge.rect().center()) + QPoint(40, 0);
    QMouseEvent move(QEvent::MouseMove, edge.mapFromGlobal(target), target, Qt::NoButton, Qt::LeftButton, {});
    QApplication::sendEvent(&edge, &move);
    EXPECT_EQ(browser->columnWidth(0), before + 40);
    EXPECT_EQ(browser->columnView(0)->width(), before + 40);
}

TEST_F(Choosing, IsReachedAndLeftByTab) {
    QWidget window;
    QWidget after(&window);
    after.setFocusPolicy(Qt::StrongFocus);
    browser->setParent(&window);
    window.show();
    QApplication::setActiveWindow(&window);
    after.setFocus();
    press(Qt::Key_Tab), press(Qt::Key_Down);
    EXPECT_EQ(browser->selectedFilePaths(), std::vector<std::string>{"/Volumes/Disk"});
    press(Qt::Key_Right), press(Qt::Key_Tab);
    EXPECT_TRUE(after.hasFocus());
    press(Qt::Key_Backtab);
    EXPECT_EQ(columnWithKeyboard(), 1);
    press(Qt::Key_Right);
    folders.listing["/Volumes/Disk"].clear();
    browser->reloadColumn(1);
    EXPECT_EQ(columnWithKeyboard(), 1) << "the column with the keyboard was closed";
    browser->setParent(nullptr);
}

} // namespace
} // namespace kelvane::tests
