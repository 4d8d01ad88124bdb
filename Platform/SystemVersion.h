#pragma once

#include <cstdint>

namespace kelvane {

// The version of the desktop in packed hexadecimal digits: major, minor, patch. A constant here: this desktop
// has what code with a check for older versions needs, so that no workaround of such code runs.
inline constexpr std::uint32_t packedSystemVersion = 0x1090;

} // namespace kelvane
