#pragma once

#include "Foundation/PropertyList/BinaryPropertyList.h"

#include <cstddef>
#include <span>
#include <string>

namespace kelvane {

// Reads property lists from files in either format, XML or binary. Callable on any thread.

// In bytes. Bundles and their tables are small, and the XML reader takes quadratic time on hostile input.
inline constexpr std::size_t largestPropertyListFile = std::size_t{1} << 20U;

// In the XML format an integer above 2^63-1 cannot be told from a negative one and reads as that; of a
// repeated key the last value wins. Refuses more than `largestPropertyListFile` bytes, NUL bytes, text that
// is not UTF-8, and more nesting or containers than a settings table needs.
[[nodiscard]] PropertyListReading readXMLPropertyList(std::span<const std::uint8_t> bytes);

// Detects the format from the first bytes: binary, otherwise XML.
[[nodiscard]] PropertyListReading readPropertyList(std::span<const std::uint8_t> bytes);

// Follows links: an installed file may be one.
[[nodiscard]] PropertyListReading readPropertyListFile(const std::string& path);

} // namespace kelvane
