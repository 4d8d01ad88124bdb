#include "Foundation/Unicode.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace kelvane {
namespace {

constexpr char32_t firstHighSurrogate = 0xD800;
constexpr char32_t firstLowSurrogate = 0xDC00;
constexpr char32_t afterSurrogates = 0xE000;
constexpr char32_t firstSupplementary = 0x10000;
constexpr char32_t largestCharacter = 0x10FFFF;

bool isHighSurrogate(char32_t unit) {
    return unit >= firstHighSurrogate && unit < firstLowSurrogate;
}
bool isLowSurrogate(char32_t unit) {
    return unit >= firstLowSurrogate && unit < afterSurrogates;
}

char32_t unitAt(const std::uint8_t* at) {
    return (static_cast<char32_t>(at[0]) << 8U) | at[1];
}

// Reads the character at `at` and advances `at` by its one or two units. The text must be valid UTF-16.
char32_t takeUtf16(const std::uint8_t*& at) {
    const char32_t unit = unitAt(at);
    at += 2;
    if (!isHighSurrogate(unit))
        return unit;
    const char32_t low = unitAt(at);
    at += 2;
    return firstSupplementary + ((unit - firstHighSurrogate) << 10U) + (low - firstLowSurrogate);
}

std::size_t utf8Size(char32_t character) {
    return character < 0x80 ? 1 : character < 0x800 ? 2 : character < firstSupplementary ? 3 : 4;
}

// The size of a text in UTF-8, in bytes; none for a lone surrogate.
std::optional<std::size_t> utf8Size(std::span<const std::uint8_t> utf16) {
    std::size_t size = 0;
    for (std::size_t at = 0; at < utf16.size(); at += 2) {
        const char32_t unit = unitAt(utf16.data() + at);
        if (isHighSurrogate(unit)) {
            at += 2;
            if (at == utf16.size() || !isLowSurrogate(unitAt(utf16.data() + at)))
                return std::nullopt;
            size += 4;
        } else if (isLowSurrogate(unit)) {
            return std::nullopt;
        } else {
            size += utf8Size(unit);
        }
    }
    return size;
}

char* writeUtf8(char* at, char32_t character) {
    static constexpr std::array<std::uint8_t, 5> leads = {0, 0, 0xC0, 0xE0, 0xF0};
    const std::size_t size = utf8Size(character);
    for (std::size_t i = size; i-- > 1; character >>= 6U)
        at[i] = static_cast<char>(0x80U | (character & 0x3FU));
    at[0] = static_cast<char>(leads[size] | character);
    return at + size;
}

// The first byte of a character: how many bytes follow, its own bits of the character, and the smallest
// character that may be encoded with this length.
struct Lead {
    std::size_t following;
    char32_t bits;
    char32_t least;
};

std::optional<Lead> leadOf(std::uint8_t byte) {
    if ((byte & 0xE0U) == 0xC0)
        return Lead{1, byte & 0x1FU, 0x80};
    if ((byte & 0xF0U) == 0xE0)
        return Lead{2, byte & 0x0FU, 0x800};
    if ((byte & 0xF8U) == 0xF0)
        return Lead{3, byte & 0x07U, firstSupplementary};
    return std::nullopt;
}

// Reads the character at `at` and advances `at`, also when the character is invalid.
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

constexpr std::string_view replacement = "\xEF\xBF\xBD";
constexpr std::string_view hexDigits = "0123456789ABCDEF";
constexpr std::size_t escapeSize = replacement.size() + 2;

// The byte whose escaped form the text begins with; none without one. ASCII bytes are never escaped.
std::optional<std::uint8_t> escapedByte(std::string_view text) {
    if (!text.starts_with(replacement) || text.size() < escapeSize)
        return std::nullopt;
    const std::size_t high = hexDigits.find(text[replacement.size()]);
    const std::size_t low = hexDigits.find(text[replacement.size() + 1]);
    if (high == std::string_view::npos || low == std::string_view::npos || high < 8)
        return std::nullopt;
    return static_cast<std::uint8_t>(high * hexDigits.size() + low);
}

void appendEscaped(std::string& text, std::string_view bytes) {
    for (const char each : bytes) {
        const auto byte = static_cast<std::uint8_t>(each);
        text += replacement;
        text += hexDigits[byte / hexDigits.size()];
        text += hexDigits[byte % hexDigits.size()];
    }
}

std::uint8_t* writeUnit(std::uint8_t* at, char32_t unit) {
    at[0] = static_cast<std::uint8_t>(unit >> 8U);
    at[1] = static_cast<std::uint8_t>(unit);
    return at + 2;
}

} // namespace

bool isAscii(std::string_view text) {
    // Checks eight bytes at a time, because paths are long and numerous.
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

bool isUtf8(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        if (static_cast<std::uint8_t>(text[at]) < 0x80)
            ++at;
        else if (!takeUtf8(text, at))
            return false;
    }
    return true;
}

std::string textFromPath(std::string_view path) {
    if (isAscii(path))
        return std::string(path);
    std::string text;
    for (std::size_t at = 0; at < path.size();) {
        const std::size_t begin = at;
        const bool isText =
            static_cast<std::uint8_t>(path[at]) < 0x80 ? ++at > 0 : takeUtf8(path, at).has_value();
        if (isText && !escapedByte(path.substr(begin))) {
            text += path.substr(begin, at - begin);
        } else {
            at = isText ? at : begin + 1;
            appendEscaped(text, path.substr(begin, at - begin));
        }
    }
    return text;
}

std::string pathFromText(std::string_view text) {
    std::string path;
    while (!text.empty()) {
        const std::size_t escape = std::min(text.find(replacement), text.size());
        path += text.substr(0, escape);
        text.remove_prefix(escape);
        if (const auto byte = escapedByte(text)) {
            path += static_cast<char>(*byte);
            text.remove_prefix(escapeSize);
        } else if (!text.empty()) {
            path += replacement;
            text.remove_prefix(replacement.size());
        }
    }
    return path;
}

std::optional<std::string> utf8FromUtf16BigEndian(std::span<const std::uint8_t> bytes) {
    const std::optional<std::size_t> size = utf8Size(bytes);
    if (!size)
        return std::nullopt;
    std::string text(*size, '\0');
    char* to = text.data();
    for (const std::uint8_t* at = bytes.data(); at != bytes.data() + bytes.size();)
        to = writeUtf8(to, takeUtf16(at));
    return text;
}

bool setUtf16BigEndian(std::vector<std::uint8_t>& units, std::string_view text) {
    units.resize(2 * text.size()); // a character has at most as many UTF-16 units as UTF-8 bytes
    std::uint8_t* to = units.data();
    for (std::size_t at = 0; at < text.size();) {
        if (static_cast<std::uint8_t>(text[at]) < 0x80) {
            to = writeUnit(to, static_cast<std::uint8_t>(text[at++]));
            continue;
        }
        const std::optional<char32_t> character = takeUtf8(text, at);
        if (!character)
            return false;
        if (*character < firstSupplementary) {
            to = writeUnit(to, *character);
        } else {
            const char32_t rest = *character - firstSupplementary;
            to = writeUnit(to, firstHighSurrogate + (rest >> 10U));
            to = writeUnit(to, firstLowSurrogate + (rest & 0x3FFU));
        }
    }
    units.resize(static_cast<std::size_t>(to - units.data()));
    return true;
}

} // namespace kelvane
