#pragma once

#include "Foundation/PropertyList/BinaryPropertyList.h"

#include <cstddef>
#include <span>
#include <string>

namespace kelvane {

// Property lists in either of their two forms, XML or binary, as they stand in files. Any thread.

// Bundles and their tables are small, and the XML reader takes quadratic time on a hostile one.
inline constexpr std::size_t largestPropertyListFile = std::size_t{1} << 20U;

// The XML form: an integer above 2^63-1 cannot be told from a negative one and reads as that; a repeated key
// counts with its last value. Refused: more than `largestPropertyListFile` bytes, a zero byte, text that is
// not UTF-8, nesting and containers beyond what a table of settings needs.
[[nodiscard]] PropertyListReading readXMLPropertyList(std::span<const std::uint8_t> bytes);

// By the first bytes: the binary form, else XML.
[[nodiscard]] PropertyListReading readPropertyList(std::span<const std::uint8_t> bytes);

// Follows links: an installed file may well be one.
[[nodiscard]] PropertyListReading readPropertyListFile(const std::string& path);

} // namespace kelvane
