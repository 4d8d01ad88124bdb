#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace kelvane {

// Returns the 64-bit FNV-1a hash (Fowler, Noll and Vo), which detects damage but not forgery.
[[nodiscard]] constexpr std::uint64_t checksumOf(const auto& bytes) {
    std::uint64_t hash = 14695981039346656037U;
    for (const auto byte : bytes)
        hash = (hash ^ static_cast<std::uint8_t>(byte)) * 1099511628211U;
    return hash;
}

} // namespace kelvane
