#include "Foundation/Value.h"

#include <algorithm>
#include <numeric>

namespace kelvane {
namespace {

// The indexes of `keys`, sorted by their texts.
std::vector<std::size_t> sortedPlaces(const Dictionary::Keys& keys) {
    std::vector<std::size_t> places(keys.size());
    std::iota(places.begin(), places.end(), std::size_t{0});
    std::sort(places.begin(), places.end(), [&](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
    return places;
}

} // namespace

Dictionary::Dictionary(std::initializer_list<Entry> entries) {
    for (const Entry& entry : entries)
        set(entry.first, entry.second);
}

const Value* Dictionary::find(std::string_view key) const {
    const std::size_t position = positionOf(key);
    return position < size() ? &values_[position] : nullptr;
}

const Value& Dictionary::operator[](std::string_view key) const {
    static const Value absent;
    const Value* value = find(key);
    return value ? *value : absent;
}

void Dictionary::set(std::string_view key, Value value) {
    if (const std::size_t position = positionOf(key); position < size())
        values_[position] = std::move(value);
    else
        append(std::string(key), std::move(value));
}

void Dictionary::append(std::string key, Value value) {
    keys_.own().push_back(std::move(key));
    values_.push_back(std::move(value));
}

bool Dictionary::erase(std::string_view key) {
    const std::size_t position = positionOf(key);
    if (position == size())
        return false;
    Keys& keys = keys_.own();
    keys.erase(keys.begin() + static_cast<std::ptrdiff_t>(position));
    values_.erase(values_.begin() + static_cast<std::ptrdiff_t>(position));
    return true;
}

void Dictionary::reserve(std::size_t count) {
    keys_.own().reserve(count);
    values_.reserve(count);
}

bool operator==(const Dictionary& left, const Dictionary& right) {
    if (left.keys_.isSameAs(right.keys_) || left.keys() == right.keys())
        return left.values_ == right.values_;
    if (left.size() != right.size())
        return false;
    const std::vector<std::size_t> leftPlaces = sortedPlaces(left.keys());
    const std::vector<std::size_t> rightPlaces = sortedPlaces(right.keys());
    return std::equal(leftPlaces.begin(), leftPlaces.end(), rightPlaces.begin(),
                      [&](std::size_t a, std::size_t b) {
                          return left.keys()[a] == right.keys()[b] && left.values_[a] == right.values_[b];
                      });
}

std::size_t Dictionary::positionOf(std::string_view key) const {
    const Keys& present = keys();
    return static_cast<std::size_t>(std::find(present.begin(), present.end(), key) - present.begin());
}

} // namespace kelvane
