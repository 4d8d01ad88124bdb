#pragma once

#include "Foundation/Value.h"

#include <cstdint>
#include <span>
#include <string>

namespace kelvane {

// Reads and writes binary property lists, the published format whose files begin with "bplist00".
//
// Both functions are pure and accept at most `deepestNesting` levels. The reader also limits the expansion of
// a list, which is the number of bytes in all its values, shared ones counted each time. The limit is
// `expansionFactor` times the size of the list plus `smallExpansion`, and at most `largestExpansion`, which a
// folder of about 1,000,000 files reaches. The writer does not check the expansion.

inline constexpr int deepestNesting = 512;
inline constexpr std::uint64_t expansionFactor = 32;
inline constexpr std::uint64_t smallExpansion = 1ULL << 24U;
inline constexpr std::uint64_t largestExpansion = 1ULL << 29U;

struct PropertyListReading {
    Value value;                 // absent when refused
    std::string error;           // the reason for the refusal; empty on success
    std::uint64_t expansion = 0; // in bytes, as described above

    [[nodiscard]] bool succeeded() const { return error.empty(); }
};

// Integers are read as signed 64-bit numbers, those above 2^63-1 as unsigned ones. The reader refuses larger
// integers, truncated lists, offsets outside of the list, cycles, sets, UIDs, null, keys that are not strings
// or occur twice, and text that is not valid UTF-16 or ASCII.
[[nodiscard]] PropertyListReading readBinaryPropertyList(std::span<const std::uint8_t> bytes);

struct PropertyListWriting {
    Data bytes;
    std::string error;

    [[nodiscard]] bool succeeded() const { return error.empty(); }
};

// Writes equal strings, dates, data and numbers of the same kind only once. Refuses absent values at any
// depth, text that is not UTF-8, and nesting that is too deep.
[[nodiscard]] PropertyListWriting writeBinaryPropertyList(const Value& value);

} // namespace kelvane
