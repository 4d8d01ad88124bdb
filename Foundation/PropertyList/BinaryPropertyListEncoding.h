#pragma once

#include "Foundation/PropertyList/BinaryPropertyListLayout.h"
#include "Foundation/Value.h"

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace kelvane {

// The encoded bytes of one object of a binary property list: a head, and the content, which refers to the
// value where possible, so that repeated strings are not copied. Must not outlive the value.
class Encoding {
public:
    Encoding() = default;
    Encoding(const Encoding&) = delete; // `content_` may point into `converted_`
    Encoding& operator=(const Encoding&) = delete;

    // Each setter replaces the previous encoding. `setHead` encodes the head of an array or dictionary, which
    // the caller follows with the references.
    void setHead(layout::Type type, std::uint64_t count);
    // Returns false if `text` is not UTF-8.
    [[nodiscard]] bool setString(std::string_view text);
    // Returns false for an absent value, a container, and a string that is not UTF-8.
    [[nodiscard]] bool set(const Value& value);

    [[nodiscard]] std::span<const std::uint8_t> head() const { return std::span(head_).first(headSize_); }
    [[nodiscard]] std::span<const std::uint8_t> content() const { return content_; }
    [[nodiscard]] std::size_t size() const { return headSize_ + content_.size(); }
    [[nodiscard]] std::uint32_t hash() const;
    // Compares this encoding with the object that begins at `at`. Reads at most `size()` bytes there.
    [[nodiscard]] bool isAt(const std::uint8_t* at) const;

private:
    void setMarker(std::uint8_t marker);
    void setNumber(std::uint8_t marker, std::uint64_t number, unsigned width);
    void setInteger(Integer integer);
    void append(std::uint64_t number, unsigned width);

    std::array<std::uint8_t, 32> head_{}; // the marker byte, then a count or a number
    std::size_t headSize_ = 0;
    std::uint64_t headHash_ = 0;
    std::span<const std::uint8_t> content_; // the bytes of a string or of data
    Data converted_;
};

// Returns the smallest of 1, 2, 4 and 8 bytes that holds `number`.
[[nodiscard]] unsigned widthOf(std::uint64_t number);

} // namespace kelvane
