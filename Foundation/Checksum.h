#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace kelvane {

// FNV-1a with 64 bits (Fowler, Noll and Vo): finds damage, and is no protection against forgery. Any thread.
[[nodiscard]] constexpr std::uint64_t checksumOf(const auto& bytes) {
    std::uint64_t hash = 14695981039346656037U;
    for (const auto byte : bytes)
        hash = (hash ^ static_cast<std::uint8_t>(byte)) * 1099511628211U;
    return hash;
}

} // namespace kelvane
