#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

// How a binary property list is laid out: the header, the objects, a table with the offset of each object,
// and the trailer, which says how wide offsets and references are and where the table stands. A reference is
// an object's place in the table. Every number has its highest byte first.
namespace kelvane::layout {

inline constexpr std::string_view header = "bplist00";

// The high four bits of an object's first byte.
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

// First bytes that say all.
inline constexpr std::uint8_t nullMarker = 0x00;
inline constexpr std::uint8_t falseMarker = 0x08;
inline constexpr std::uint8_t trueMarker = 0x09;
inline constexpr std::uint8_t floatMarker = 0x22;
inline constexpr std::uint8_t doubleMarker = 0x23;
inline constexpr std::uint8_t dateMarker = 0x33;

// The low four bits of the first byte are a count, or this where the count does not fit: an integer object
// with the count follows.
inline constexpr std::uint8_t countFollows = 0xF;

inline constexpr std::size_t trailerSize = 32;

struct Trailer {
    unsigned offsetWidth = 0;
    unsigned referenceWidth = 0;
    std::uint64_t objectCount = 0;
    std::uint64_t topObject = 0;
    std::uint64_t tableOffset = 0;
};

// None when header or trailer are not those of a binary property list, or the table does not exactly fill the
// room between the objects and the trailer.
[[nodiscard]] std::optional<Trailer> readTrailer(std::span<const std::uint8_t> file);
// Writes `trailerSize` bytes.
void writeTrailer(std::uint8_t* at, const Trailer& trailer);

static_assert(std::endian::native == std::endian::little);

// Numbers of 1 to 8 bytes. Eight bytes are touched whatever the width is, which spares a loop: only for
// places with a trailer, or what will be one, behind them; and one writes from front to back.
inline std::uint64_t readNumber(const std::uint8_t* at, unsigned width) {
    std::uint64_t number = 0;
    std::memcpy(&number, at, sizeof(number));
    return __builtin_bswap64(number) >> (64U - 8U * width);
}

inline void writeNumber(std::uint8_t* at, std::uint64_t number, unsigned width) {
    const std::uint64_t swapped = __builtin_bswap64(number << (64U - 8U * width));
    std::memcpy(at, &swapped, sizeof(swapped));
}

} // namespace kelvane::layout
