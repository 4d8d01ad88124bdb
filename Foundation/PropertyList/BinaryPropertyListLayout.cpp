#include "Foundation/PropertyList/BinaryPropertyListLayout.h"

namespace kelvane::layout {
namespace {

// Byte offsets of the fields in the trailer.
constexpr std::size_t offsetWidthField = 6;
constexpr std::size_t referenceWidthField = 7;
constexpr std::size_t objectCountField = 8;
constexpr std::size_t topObjectField = 16;
constexpr std::size_t tableOffsetField = 24;

bool isWidth(unsigned width) {
    return width >= 1 && width <= 8;
}

} // namespace

std::optional<Trailer> readTrailer(std::span<const std::uint8_t> file) {
    if (file.size() < header.size() + trailerSize ||
        std::memcmp(file.data(), header.data(), header.size()) != 0)
        return std::nullopt;
    const std::uint64_t tableEnd = file.size() - trailerSize;
    const std::uint8_t* at = file.data() + tableEnd;
    const Trailer trailer{.offsetWidth = at[offsetWidthField],
                          .referenceWidth = at[referenceWidthField],
                          .objectCount = readNumber(at + objectCountField, 8),
                          .topObject = readNumber(at + topObjectField, 8),
                          .tableOffset = readNumber(at + tableOffsetField, 8)};
    if (!isWidth(trailer.offsetWidth) || !isWidth(trailer.referenceWidth) ||
        trailer.tableOffset < header.size() || trailer.tableOffset > tableEnd)
        return std::nullopt;
    const std::uint64_t tableSize = tableEnd - trailer.tableOffset;
    if (tableSize % trailer.offsetWidth != 0 || tableSize / trailer.offsetWidth != trailer.objectCount)
        return std::nullopt;
    if (trailer.objectCount > trailer.tableOffset - header.size()) // each takes at least one byte
        return std::nullopt;
    if (trailer.offsetWidth < 8 && trailer.objectCount >> (8 * trailer.offsetWidth) != 0)
        return std::nullopt; // offsets of that width cannot be different for all objects
    return trailer;
}

void writeTrailer(std::uint8_t* at, const Trailer& trailer) {
    std::memset(at, 0, trailerSize);
    at[offsetWidthField] = static_cast<std::uint8_t>(trailer.offsetWidth);
    at[referenceWidthField] = static_cast<std::uint8_t>(trailer.referenceWidth);
    writeNumber(at + objectCountField, trailer.objectCount, 8);
    writeNumber(at + topObjectField, trailer.topObject, 8);
    writeNumber(at + tableOffsetField, trailer.tableOffset, 8);
}

} // namespace kelvane::layout
