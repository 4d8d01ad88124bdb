#pragma once

#include "Foundation/Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace kelvane {

// What the one key of a marker object may be.
namespace marker {

inline constexpr std::string_view date = "$date";
inline constexpr std::string_view data = "$data";
inline constexpr std::string_view float4 = "$float";
inline constexpr std::string_view real = "$real";
inline constexpr std::string_view dictionary = "$dictionary";

} // namespace marker

// Whether an object with just these entries is a marker: its only key is one of these. "$dictionary" makes
// one already where it stands first, so that a reader knows what follows before it has seen the end.
[[nodiscard]] bool isMarker(const Dictionary& entries);

// What the marker `key` makes of its content; absent when the content does not fit.
[[nodiscard]] Value valueOfMarker(std::string_view key, const Value& content);

// The seconds since 2001 of a text like "2025-01-02T03:04:05.678Z"; none for anything else.
[[nodiscard]] std::optional<Date> dateFromText(std::string_view text);

// "inf", "-inf", "nan", or "nan:0x" and the bits of a NaN that is not the usual one.
[[nodiscard]] std::string textOfNonFinite(float number);
[[nodiscard]] std::string textOfNonFinite(double number);

} // namespace kelvane
