#include "PreferencePane/Services/Sheet.h"

#include "Tests/Harness/RunUntil.h"

#include <QAccessible>
#include <QKeyEvent>
#include <QPushButton>
#include <algorithm>
#include <gtest/gtest.h>
#include <set>

namespace kelvane::tests {
namespace {

// Returns the number of button rows; no button may be narrower than its text.
std::size_t rowsOfButtons(const std::vector<QString>& texts) {
    QWidget window;
    window.show();
    QMessageBox& sheet =
        *openSheet(&window, {"Message", "What it means", texts, true, [] {}}, &window, [](int) {});
    std::set<int> heights;
    for (const QAbstractButton* const button : sheet.buttons()) {
        EXPECT_GE(button->width(), button->sizeHint().width()) << button->text().toStdString();
        heights.insert(button->y());
    }
    return heights.size();
}

TEST(Sheet, CutsNoButtonHoweverLongItsText) {
    EXPECT_EQ(rowsOfButtons({"Restore", "Choose…", "Cancel"}), 1);
    const QString text = "Am ursprünglichen Ort wiederherstellen";
    EXPECT_EQ(rowsOfButtons({text, text, text, "Abbrechen"}), 5);
}

TEST(Sheet, IsNamedAfterThePaneAndIsAnsweredOnce) {
    QWidget window;
    window.setWindowTitle("Settings");
    QWidget pane(&window);
    pane.setWindowTitle("Kelvane");
    window.show();
    std::vector<int> answers;
    const auto open = [&]() -> QMessageBox& {
        return *openSheet(&pane, {"Message", "", {"First", "Second", "Last"}}, &window,
                          [&](int answer) { answers.push_back(answer); });
    };
    EXPECT_EQ(open().windowTitle(), "Kelvane");
    EXPECT_EQ(QAccessible::queryAccessibleInterface(&open())->text(QAccessible::Name), "Message");
    QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QCoreApplication::sendEvent(&open(), &escape);
    for (const int button : {0, 1, 2}) {
        QMessageBox& sheet = open();
        sheet.buttons()[button]->click();
    }
    ASSERT_TRUE(runUntil([&] { return answers.size() == 4; }));
    EXPECT_EQ(answers.front(), 1002) << "Escape means the last one";
    std::sort(answers.begin(), answers.end());
    EXPECT_EQ(answers, (std::vector{1000, 1001, 1002, 1002}));
}

} // namespace
} // namespace kelvane::tests
