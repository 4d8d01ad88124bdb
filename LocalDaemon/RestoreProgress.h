#pragma once

#include <cstdint>

// The numbers under which panes ask how a restore is going.
namespace kelvane::restoreprogress {

inline constexpr std::uint32_t currentFile = 15;     // a string
inline constexpr std::uint32_t currentFileSize = 16; // bytes, unsigned 64-bit
inline constexpr std::uint32_t pendingCount = 35;    // files, signed 64-bit

} // namespace kelvane::restoreprogress
