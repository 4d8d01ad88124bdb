#include "Foundation/Unicode.h"

#include <array>
#include <cstring>

namespace kelvane {
namespace {

constexpr char32_t firstHighSurrogate = 0xD800;
constexpr char32_t firstLowSurrogate = 0xDC00;
constexpr char32_t afterSurrogates = 0xE000;
constexpr char32_t firstSupplementary = 0x10000;
constexpr char32_t largestCharacter = 0x10FFFF;

bool isHighSurrogate(char32_t unit) { return unit >= firstHighSurrogate && unit < firstLowSurrogate; }
bool isLowSurrogate(char32_t unit) { return unit >= firstLowSurrogate && unit < afterSurrogates; }

void appendUtf8(std::string& text, char32_t character) {
    const auto continuation = [character](unsigned shift) {
        return static_cast<char>(0x80U | ((character >> shift) & 0x3FU));
    };
    if (character < 0x80) {
        text += static_cast<char>(character);
    } else if (character < 0x800) {
        text += static_cast<char>(0xC0U | (character >> 6U));
        text += continuation(0);
    } else if (character < firstSupplementary) {
        text += static_cast<char>(0xE0U | (character >> 12U));
        text += continuation(6);
        text += continuation(0);
    } else {
        text += static_cast<char>(0xF0U | (character >> 18U));
        text += continuation(12);
        text += continuation(6);
        text += continuation(0);
    }
}

// What the first byte of a character says: how many bytes follow, the bits it holds, the least number so written.
struct Lead {
    std::size_t following;
    char32_t bits;
    char32_t least;
};

std::optional<Lead> leadOf(std::uint8_t byte) {
    if (byte < 0x80)
        return Lead{0, byte, 0};
    if ((byte & 0xE0U) == 0xC0)
        return Lead{1, byte & 0x1FU, 0x80};
    if ((byte & 0xF0U) == 0xE0)
        return Lead{2, byte & 0x0FU, 0x800};
    if ((byte & 0xF8U) == 0xF0)
        return Lead{3, byte & 0x07U, firstSupplementary};
    return std::nullopt;
}

// Takes the character that begins at `at` and moves behind it.
std::optional<char32_t> takeUtf8(std::string_view text, std::size_t& at) {
    const std::optional<Lead> lead = leadOf(static_cast<std::uint8_t>(text[at++]));
    if (!lead || text.size() - at < lead->following)
        return std::nullopt;
    char32_t character = lead->bits;
    for (std::size_t i = 0; i < lead->following; ++i) {
        const auto byte = static_cast<std::uint8_t>(text[at++]);
        if ((byte & 0xC0U) != 0x80)
            return std::nullopt;
        character = (character << 6U) | (byte & 0x3FU);
    }
    const bool isSurrogate = character >= firstHighSurrogate && character < afterSurrogates;
    if (character < lead->least || character > largestCharacter || isSurrogate)
        return std::nullopt;
    return character;
}

void appendUnit(std::vector<std::uint8_t>& bytes, char32_t unit) {
    bytes.push_back(static_cast<std::uint8_t>(unit >> 8U));
    bytes.push_back(static_cast<std::uint8_t>(unit));
}

} // namespace

bool isAscii(std::string_view text) {
    // Eight characters at a time: paths are long and many.
    constexpr std::uint64_t highBits = 0x8080808080808080;
    std::uint64_t seen = 0;
    std::size_t at = 0;
    for (; at + sizeof(seen) <= text.size(); at += sizeof(seen)) {
        std::uint64_t chunk = 0;
        std::memcpy(&chunk, text.data() + at, sizeof(chunk));
        seen |= chunk;
    }
    for (; at < text.size(); ++at)
        seen |= static_cast<std::uint8_t>(text[at]);
    return (seen & highBits) == 0;
}

std::optional<std::string> utf8FromUtf16BigEndian(std::span<const std::uint8_t> bytes) {
    std::string text;
    text.reserve(bytes.size());
    const auto unit = [bytes](std::size_t at) {
        return (static_cast<char32_t>(bytes[at]) << 8U) | static_cast<char32_t>(bytes[at + 1]);
    };
    for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
        char32_t character = unit(at);
        if (isLowSurrogate(character))
            return std::nullopt;
        if (isHighSurrogate(character)) {
            at += 2;
            if (at + 1 >= bytes.size() || !isLowSurrogate(unit(at)))
                return std::nullopt;
            character = firstSupplementary + ((character - firstHighSurrogate) << 10U) + (unit(at) - firstLowSurrogate);
        }
        appendUtf8(text, character);
    }
    return text;
}

std::optional<std::vector<std::uint8_t>> utf16BigEndianFromUtf8(std::string_view text) {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() * 2);
    for (std::size_t at = 0; at < text.size();) {
        const std::optional<char32_t> character = takeUtf8(text, at);
        if (!character)
            return std::nullopt;
        if (*character < firstSupplementary) {
            appendUnit(bytes, *character);
        } else {
            const char32_t rest = *character - firstSupplementary;
            appendUnit(bytes, firstHighSurrogate + (rest >> 10U));
            appendUnit(bytes, firstLowSurrogate + (rest & 0x3FFU));
        }
    }
    return bytes;
}

} // namespace kelvane
