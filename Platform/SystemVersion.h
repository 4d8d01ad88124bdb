#pragma once

#include <cstdint>

namespace kelvane {

// The system version in packed hexadecimal digits: major, minor, patch. A constant with which code that
// checks for older systems needs no workarounds.
inline constexpr std::uint32_t packedSystemVersion = 0x1090;

} // namespace kelvane
