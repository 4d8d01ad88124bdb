#pragma once

#include <cstdint>
#include <string_view>

// The numbers by which panes are told how a restore is going, and under which they ask for it.
namespace kelvane::restoreprogress {

inline constexpr std::uint32_t currentFile = 15;     // a string
inline constexpr std::uint32_t currentFileSize = 16; // bytes, unsigned 64-bit
inline constexpr std::uint32_t pendingCount = 35;    // files, signed 64-bit; 0: it is over
inline constexpr std::uint32_t begin = 48;           // there is nothing to ask for

[[nodiscard]] constexpr bool isOfRestore(std::uint32_t code) {
    return code == currentFile || code == currentFileSize || code == pendingCount || code == begin;
}

// The kind of the alert that closes a restore. Its title is empty.
inline constexpr std::string_view closingAlert = "restore_finished";

} // namespace kelvane::restoreprogress
