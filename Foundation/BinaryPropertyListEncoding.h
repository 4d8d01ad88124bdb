#pragma once

#include "Foundation/BinaryPropertyListLayout.h"
#include "Foundation/Value.h"

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace kelvane {

// The bytes of one object of a binary property list, in two parts, so that a text that turns out to be in the
// file already is never copied. Belongs to the value that it was made from.
class Encoding {
public:
    Encoding() = default;
    Encoding(const Encoding&) = delete; // `content_` may point into `converted_`
    Encoding& operator=(const Encoding&) = delete;

    // Each replaces what was there. An array or dictionary has a head of its own; its references come behind
    // that.
    void setHead(layout::Type type, std::uint64_t count);
    // False when `text` is not UTF-8.
    [[nodiscard]] bool setString(std::string_view text);
    // False for an absent value, a container and a string that is not UTF-8.
    [[nodiscard]] bool set(const Value& value);

    [[nodiscard]] std::span<const std::uint8_t> head() const { return std::span(head_).first(headSize_); }
    [[nodiscard]] std::span<const std::uint8_t> content() const { return content_; }
    [[nodiscard]] std::size_t size() const { return headSize_ + content_.size(); }
    [[nodiscard]] std::uint32_t hash() const;
    // Whether the object that begins at `at` is this one. Reads no more than `size()` bytes there.
    [[nodiscard]] bool isAt(const std::uint8_t* at) const;

private:
    void setMarker(std::uint8_t marker);
    void setNumber(std::uint8_t marker, std::uint64_t number, unsigned width);
    void setInteger(Integer integer);
    void append(std::uint64_t number, unsigned width);

    std::array<std::uint8_t, 32> head_{}; // the first byte with a count or a number
    std::size_t headSize_ = 0;
    std::uint64_t headHash_ = 0;
    std::span<const std::uint8_t> content_; // of a text or of data
    Data converted_;
};

// The fewest of 1, 2, 4 or 8 bytes that hold `number`.
[[nodiscard]] unsigned widthOf(std::uint64_t number);

} // namespace kelvane
