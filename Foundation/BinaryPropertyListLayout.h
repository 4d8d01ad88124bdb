#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

// How a binary property list is laid out: the header, the objects, a table with the offset of each object, and the
// trailer, which says how wide offsets and references are and where the table stands. Every number has its highest
// byte first.
namespace kelvane::layout {

inline constexpr std::string_view header = "bplist00";

// The first byte of an object: its type in the high four bits, its size in the low ones.
enum class Type : std::uint8_t {
    Simple = 0x0,
    Integer = 0x1,
    Real = 0x2,
    Date = 0x3,
    Data = 0x4,
    AsciiString = 0x5,
    Utf16String = 0x6,
    Uid = 0x8,
    Array = 0xA,
    OrderedSet = 0xB,
    Set = 0xC,
    Dictionary = 0xD,
};

inline constexpr std::uint8_t nullMarker = 0x00;
inline constexpr std::uint8_t falseMarker = 0x08;
inline constexpr std::uint8_t trueMarker = 0x09;
inline constexpr std::uint8_t dateMarker = 0x33;
// Stands for the count where that does not fit four bits; an integer object with the count follows.
inline constexpr std::uint8_t countFollows = 0xF;

inline constexpr std::size_t trailerSize = 32;
inline constexpr std::size_t trailerOffsetWidth = 6;
inline constexpr std::size_t trailerReferenceWidth = 7;
inline constexpr std::size_t trailerObjectCount = 8;
inline constexpr std::size_t trailerTopObject = 16;
inline constexpr std::size_t trailerTableOffset = 24;

inline std::uint64_t swapped(std::uint64_t number) {
    static_assert(std::endian::native == std::endian::little);
    return __builtin_bswap64(number);
}

// `width` is 1 to 8. Eight bytes are read whatever the width: only for places that stand before the trailer or in it.
inline std::uint64_t readNumber(const std::uint8_t* at, unsigned width) {
    std::uint64_t number = 0;
    std::memcpy(&number, at, sizeof(number));
    return swapped(number) >> (64U - 8U * width);
}

} // namespace kelvane::layout
