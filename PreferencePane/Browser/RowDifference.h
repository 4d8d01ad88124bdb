#pragma once

#include "PreferencePane/Browser/KelvaneBrowserCell.h"

#include <span>
#include <string_view>
#include <vector>

namespace kelvane {

// Identifies a row: its path (or its title if it has none) and whether it is a leaf. A file that became a
// folder is a different row.
struct RowKey {
    std::string_view name;
    bool isLeaf = false;

    friend bool operator==(const RowKey&, const RowKey&) = default;
};

[[nodiscard]] RowKey rowKey(const KelvaneBrowserCell& cell);

inline constexpr int gonePlace = -1;

// The new position of each old row, or `gonePlace`. Rows with the same key are matched in order.
[[nodiscard]] std::vector<int> placesAmong(std::span<const RowKey> newKeys, std::span<const RowKey> oldKeys);

// A range of adjacent rows, both ends included.
struct RowRun {
    int first = 0;
    int last = 0;
};

// The runs of rows from 0 to `count` - 1 for which `isMember` is true, from the top.
template <class IsMember>
[[nodiscard]] std::vector<RowRun> runsOf(int count, IsMember isMember) {
    std::vector<RowRun> runs;
    for (int row = 0; row < count; ++row) {
        if (!isMember(row))
            continue;
        if (!runs.empty() && runs.back().last == row - 1)
            runs.back().last = row;
        else
            runs.push_back({row, row});
    }
    return runs;
}

} // namespace kelvane
