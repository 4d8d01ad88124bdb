#include "PreferencePane/Browser/ColumnModel.h"

#include <QPersistentModelIndex>
#include <QSignalSpy>
#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>
#include <random>
#include <set>

namespace kelvane::tests {
namespace {

BrowserRows rowsNamed(const std::vector<int>& names) {
    BrowserRows rows;
    for (const int name : names)
        rows.emplace_back(std::to_string(name), std::to_string(name));
    return rows;
}

class Model : public testing::Test {
protected:
    [[nodiscard]] std::vector<int> shown() const {
        std::vector<int> names;
        for (int row = 0; row < model.count(); ++row)
            names.push_back(std::stoi(model.cell(row).getFilePath()));
        return names;
    }

    ColumnModel model{[](const KelvaneBrowserCell&) { return QIcon(); }, nullptr};
};

// From all alike to nothing in common, in any order, with twins.
TEST_F(Model, ShowsWhatIsListedAndLetsRowsBeFollowed) {
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        std::vector<int> names(random() % 120);
        std::ranges::generate(names,
                              [&, range = 1 + random() % 200] { return static_cast<int>(random() % range); });
        if (round % 2 == 0)
            std::ranges::sort(names);
        const std::vector<int> before = shown();
        std::vector<QPersistentModelIndex> followed;
        for (int row = 0; row < model.count(); ++row)
            followed.emplace_back(model.index(row));

        model.setRows(rowsNamed(names));

        ASSERT_EQ(shown(), names);
        std::vector<int> stayed;
        for (std::size_t row = 0; row < before.size(); ++row) {
            if (!followed[row].isValid())
                continue;
            stayed.push_back(before[row]);
            EXPECT_EQ(names[static_cast<std::size_t>(followed[row].row())], before[row]);
        }
        std::vector<int> common;
        std::ranges::sort(stayed);
        std::ranges::set_intersection(std::multiset<int>(before.begin(), before.end()),
                                      std::multiset<int>(names.begin(), names.end()),
                                      std::back_inserter(common));
        EXPECT_EQ(stayed, common);
    }
}

TEST_F(Model, SaysNoMoreThanWhatHasChanged) {
    std::vector<int> names(10'000);
    std::iota(names.begin(), names.end(), 0);
    BrowserRows rows = rowsNamed(names);
    model.setRows(rows);
    QSignalSpy inserted(&model, &ColumnModel::rowsInserted);
    QSignalSpy removed(&model, &ColumnModel::rowsRemoved);
    QSignalSpy moved(&model, &ColumnModel::layoutChanged);
    QSignalSpy changed(&model, &ColumnModel::dataChanged);
    const auto setRowsSays = [&](std::vector<qsizetype> counts) {
        model.setRows(rows);
        EXPECT_EQ((std::vector{inserted.size(), removed.size(), moved.size(), changed.size()}), counts);
    };
    setRowsSays({0, 0, 0, 0});
    rows[7].setEnabled(false);
    rows[8].setStateText("Backed up");
    setRowsSays({0, 0, 0, 1});
    rows.erase(rows.begin() + 4, rows.begin() + 6);
    rows.insert(rows.begin() + 100, KelvaneBrowserCell("new", "new"));
    setRowsSays({1, 1, 0, 1});
    // Thousands of single changes would each move what is below them.
    std::erase_if(rows, [](const KelvaneBrowserCell& cell) { return cell.title().back() % 2 == 0; });
    setRowsSays({1, 2, 1, 1});
}

} // namespace
} // namespace kelvane::tests
