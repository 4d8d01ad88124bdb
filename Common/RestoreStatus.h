#pragma once

#include <cstdint>
#include <string>

// What a daemon answers of a restore job by its number.
namespace kelvane::restorestatus {

inline constexpr std::uint32_t unknown = 0; // it never was, or ended long ago
inline constexpr std::uint32_t finished = 1;
inline constexpr std::uint32_t incomplete = 2; // ended, but not everything has been restored
inline constexpr std::uint32_t cancelled = 3;
inline constexpr std::uint32_t waiting = 50;
inline constexpr std::uint32_t running = 51; // or more

[[nodiscard]] constexpr bool hasEnded(std::uint32_t status) {
    return status < waiting;
}

// The profile key under which the local daemon keeps what a job could not restore: a line for each file, its
// path and why, without control characters. Empty for a job that went well.
[[nodiscard]] inline std::string failuresKey(std::uint32_t job) {
    return "restoreJob." + std::to_string(job) + ".failures";
}

} // namespace kelvane::restorestatus
