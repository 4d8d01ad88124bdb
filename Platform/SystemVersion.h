#pragma once

#include <cstdint>

namespace kelvane {

// The system's version as its packed hexadecimal digits: major, minor, patch. Here always the one whose look
// and abilities this desktop has; whatever asks for less than it has nothing to make up for.
inline constexpr std::uint32_t packedSystemVersion = 0x1090;

} // namespace kelvane
