#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

namespace kelvane {

// Returns the FNV-1a hash (Fowler, Noll and Vo) with 64 or 32 bits, which detects damage but not forgery.
template <class Hash = std::uint64_t>
[[nodiscard]] constexpr Hash checksumOf(const auto& bytes) {
    constexpr bool isLong = std::is_same_v<Hash, std::uint64_t>;
    static_assert(isLong || std::is_same_v<Hash, std::uint32_t>);
    constexpr auto prime = static_cast<Hash>(isLong ? 1099511628211U : 16777619U);
    auto hash = static_cast<Hash>(isLong ? 14695981039346656037U : 2166136261U);
    for (const auto byte : bytes)
        hash = (hash ^ static_cast<std::uint8_t>(byte)) * prime;
    return hash;
}

} // namespace kelvane
