#pragma once

#include "Foundation/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kelvane::tests {

// Returns `number` in `width` bytes, big-endian; truncated or filled with zeros.
inline std::string bigEndian(std::uint64_t number, unsigned width) {
    std::string bytes;
    for (unsigned i = width; i > 0; --i)
        bytes += i > 8 ? '\0' : static_cast<char>(number >> (8 * (i - 1)));
    return bytes;
}

// The object for a count that does not fit in the first byte.
inline std::string longObject(unsigned type, std::uint64_t count, const std::string& content) {
    return std::string(1, static_cast<char>(type << 4U | 0xFU)) + "\x12" + bigEndian(count, 4) + content;
}

// A binary property list assembled from bytes, valid or not: each text holds the bytes of one object.
struct RawPropertyList {
    std::vector<std::string> objects = {"\x09"};
    unsigned offsetWidth = 2;
    unsigned referenceWidth = 1;
    std::uint64_t top = 0;
    // Override the correct values.
    std::optional<std::uint64_t> objectCount = std::nullopt;
    std::vector<std::uint64_t> offsets = {};

    [[nodiscard]] Data bytes() const {
        std::string file = "bplist00";
        std::vector<std::uint64_t> places;
        for (const std::string& object : objects) {
            places.push_back(file.size());
            file += object;
        }
        const std::uint64_t table = file.size();
        for (const std::uint64_t place : offsets.empty() ? places : offsets)
            file += bigEndian(place, offsetWidth);
        file += bigEndian(offsetWidth, 7) + bigEndian(referenceWidth, 1);
        file += bigEndian(objectCount.value_or(objects.size()), 8) + bigEndian(top, 8) + bigEndian(table, 8);
        return {file.begin(), file.end()};
    }
};

inline std::string hexOf(const Data& bytes) {
    std::string text = Value(bytes).description();
    return text.substr(1, text.size() - 2);
}

} // namespace kelvane::tests
