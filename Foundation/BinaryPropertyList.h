#pragma once

#include "Foundation/Value.h"

#include <cstdint>
#include <span>
#include <string>

namespace kelvane {

// Binary property lists, the published format whose files begin with "bplist00".
//
// Both directions are bounded by `deepestNesting` levels. Reading is also bounded by what walking the values
// comes to, in bytes, shared ones counted each time: at most `expansionFactor` times the list's own size and
// `smallExpansion`, and never more than `largestExpansion`, which a folder of about 1,000,000 files reaches.
// What is written is not measured against that. Both are pure functions, for any thread.

inline constexpr int deepestNesting = 512;
inline constexpr std::uint64_t expansionFactor = 32;
inline constexpr std::uint64_t smallExpansion = 1ULL << 24U;
inline constexpr std::uint64_t largestExpansion = 1ULL << 29U;

struct PropertyListReading {
    Value value;                 // absent when refused
    std::string error;           // why it was refused; empty on success
    std::uint64_t expansion = 0; // what walking the value comes to, in bytes

    [[nodiscard]] bool succeeded() const { return error.empty(); }
};

// Integers come back as signed 64-bit numbers, those above 2^63-1 as unsigned ones. Refused, with the reason:
// what is truncated or points outside, loops, sets, UIDs and null, keys that are not strings or stand twice,
// text that is not UTF-16 or ASCII, integers that fit neither a signed nor an unsigned 64-bit number.
[[nodiscard]] PropertyListReading readBinaryPropertyList(std::span<const std::uint8_t> bytes);

struct PropertyListWriting {
    Data bytes;
    std::string error;

    [[nodiscard]] bool succeeded() const { return error.empty(); }
};

// Equal numbers of one kind, strings, dates and data are written once. Refused: an absent value anywhere,
// text that is not UTF-8, nesting that is too deep.
[[nodiscard]] PropertyListWriting writeBinaryPropertyList(const Value& value);

} // namespace kelvane
