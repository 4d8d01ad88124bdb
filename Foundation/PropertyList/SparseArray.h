#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

namespace kelvane {

// An array of at most 2^32 items, each of which is created when it is first accessed and never moves. It
// uses memory for these, for blocks of 1024 numbers around them, and 8 bytes for every 1024 of its size.
template <class Item>
class SparseArray {
public:
    explicit SparseArray(std::uint64_t size) : blocks_(size / blockSize + 1) {}

    Item& operator[](std::uint64_t index) {
        std::unique_ptr<Block>& block = blocks_[index / blockSize];
        if (!block)
            block = std::make_unique<Block>();
        std::uint32_t& number = (*block)[index % blockSize];
        if (number == 0) {
            items_.emplace_back();
            number = static_cast<std::uint32_t>(items_.size());
        }
        return items_[number - 1];
    }

private:
    static constexpr std::uint64_t blockSize = 1024;
    using Block = std::array<std::uint32_t, blockSize>; // numbers of items from 1; 0: not created yet

    std::vector<std::unique_ptr<Block>> blocks_;
    std::deque<Item> items_;
};

} // namespace kelvane
