#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

// The layout of a binary property list: the header, the objects, a table with the offset of each object, and
// the trailer, which contains the width of offsets and references and the position of the table. A reference
// is the index of an object in the table. All numbers are big-endian.
namespace kelvane::layout {

inline constexpr std::string_view header = "bplist00";

// The error of the reader and the writer for more than `deepestNesting` levels.
inline constexpr const char* tooDeep = "it is nested too deeply";

// The type of an object, in the high four bits of its first byte.
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

// First bytes that determine the object completely, or its type and size.
inline constexpr std::uint8_t nullMarker = 0x00;
inline constexpr std::uint8_t falseMarker = 0x08;
inline constexpr std::uint8_t trueMarker = 0x09;
inline constexpr std::uint8_t floatMarker = 0x22;
inline constexpr std::uint8_t doubleMarker = 0x23;
inline constexpr std::uint8_t dateMarker = 0x33;

// The low four bits of the first byte are a count. If the count does not fit, they have this value, and an
// integer object with the count follows.
inline constexpr std::uint8_t countFollows = 0xF;

inline constexpr std::size_t trailerSize = 32;

struct Trailer {
    unsigned offsetWidth = 0;
    unsigned referenceWidth = 0;
    std::uint64_t objectCount = 0;
    std::uint64_t topObject = 0;
    std::uint64_t tableOffset = 0;
};

// Returns nothing if the header or the trailer is not that of a binary property list, or if the table does
// not exactly fill the space between the objects and the trailer.
[[nodiscard]] std::optional<Trailer> readTrailer(std::span<const std::uint8_t> file);
// Writes `trailerSize` bytes at `at`.
void writeTrailer(std::uint8_t* at, const Trailer& trailer);

static_assert(std::endian::native == std::endian::little);

// Read and write numbers of 1 to 8 bytes. To avoid a loop both functions access eight bytes whatever the
// width. These must exist, as they do before the trailer, and numbers must be written from front to back.
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
