#include "PreferencePane/Browser/RowDifference.h"

#include <algorithm>
#include <functional>
#include <unordered_map>

namespace kelvane {
namespace {

struct HashOfKey {
    std::size_t operator()(const RowKey& key) const {
        return std::hash<std::string_view>()(key.name) ^ static_cast<std::size_t>(key.isLeaf);
    }
};

// The rows of each key from the top, taken one by one.
class RowsByKey {
public:
    RowsByKey(std::span<const RowKey> keys, std::size_t begin) : nextAlike_(keys.size(), gonePlace) {
        first_.reserve(keys.size() - begin);
        for (std::size_t row = keys.size(); row-- > begin;) {
            const auto [entry, isNew] = first_.try_emplace(keys[row], static_cast<int>(row));
            if (!isNew)
                nextAlike_[row] = std::exchange(entry->second, static_cast<int>(row));
        }
    }
    int take(const RowKey& key) {
        const auto entry = first_.find(key);
        if (entry == first_.end() || entry->second == gonePlace)
            return gonePlace;
        return std::exchange(entry->second, nextAlike_[static_cast<std::size_t>(entry->second)]);
    }

private:
    std::unordered_map<RowKey, int, HashOfKey> first_;
    std::vector<int> nextAlike_;
};

} // namespace

RowKey rowKey(const KelvaneBrowserCell& cell) {
    return {cell.getFilePath().empty() ? cell.title() : cell.getFilePath(), cell.isLeaf()};
}

std::vector<int> placesAmong(std::span<const RowKey> newKeys, std::span<const RowKey> oldKeys) {
    // Most reloads change little: the rows up to the first difference need no table.
    const auto alike =
        static_cast<std::size_t>(std::ranges::mismatch(oldKeys, newKeys).in1 - oldKeys.begin());
    std::vector<int> places;
    places.reserve(oldKeys.size());
    for (std::size_t row = 0; row < alike; ++row)
        places.push_back(static_cast<int>(row));
    RowsByKey rows(newKeys, alike);
    for (const RowKey& key : oldKeys.subspan(alike))
        places.push_back(rows.take(key));
    return places;
}

} // namespace kelvane
