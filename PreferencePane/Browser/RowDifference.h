#pragma once

#include "PreferencePane/Browser/KelvaneBrowserCell.h"

#include <span>
#include <string_view>
#include <vector>

namespace kelvane {

// By what a row is known again: its path (its title, where it has none) and whether it is a leaf. A file that
// became a folder is another row.
struct RowKey {
    std::string_view name;
    bool isLeaf = false;

    friend bool operator==(const RowKey&, const RowKey&) = default;
};

[[nodiscard]] RowKey rowKey(const KelvaneBrowserCell& cell);

inline constexpr int gonePlace = -1;

// For each old row its place among the new ones, or `gonePlace`. Of several with one key the first is the
// first.
[[nodiscard]] std::vector<int> placesAmong(std::span<const RowKey> newKeys, std::span<const RowKey> oldKeys);

// Neighbouring rows, both ends included.
struct RowRun {
    int first = 0;
    int last = 0;
};

// The rows of 0 to `count` - 1 for which `isMember` holds, from the top.
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
