#include "PreferencePane/Services/Sheet.h"

#include <QPushButton>
#include <gtest/gtest.h>
#include <set>

namespace kelvane::tests {
namespace {

// On how many heights its buttons stand, none of them narrower than its text needs.
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

} // namespace
} // namespace kelvane::tests
