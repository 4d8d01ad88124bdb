#include "Support/Json/Base64.h"

namespace kelvane {
namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The number of padding characters, by which the last group is shorter than three bytes.
std::size_t paddingOf(std::string_view text) {
    if (text.ends_with("=="))
        return 2;
    return text.ends_with("=") ? 1 : 0;
}

} // namespace

std::string base64FromData(std::span<const std::uint8_t> bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t start = 0; start < bytes.size(); start += 3) {
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - start);
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i)
            group = group << 8U | (i < count ? bytes[start + i] : 0U);
        for (std::size_t i = 0; i < 4; ++i)
            text += i <= count ? alphabet[group >> (18U - 6U * i) & 63U] : '=';
    }
    return text;
}

std::optional<Data> dataFromBase64(std::string_view text) {
    if (text.size() % 4 != 0)
        return std::nullopt;
    const std::size_t padding = paddingOf(text);
    Data bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < text.size() - padding; ++i) {
        const std::size_t digit = alphabet.find(text[i]);
        if (digit == std::string_view::npos)
            return std::nullopt;
        group = group << 6U | static_cast<std::uint32_t>(digit);
        if (i % 4 != 0)
            bytes.push_back(static_cast<std::uint8_t>(group >> (6U - 2U * (i % 4))));
    }
    // The unused bits of the last group must be 0: otherwise two texts would stand for the same bytes.
    const bool leftOver = (group & ((1U << 2U * padding) - 1U)) != 0;
    return leftOver ? std::nullopt : std::optional(std::move(bytes));
}

} // namespace kelvane
