#pragma once

#include "Foundation/Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace kelvane {

// The keys of marker objects: JSON objects with one key that stand for a value without a JSON form.
namespace marker {

inline constexpr std::string_view date = "$date";
inline constexpr std::string_view data = "$data";
inline constexpr std::string_view float4 = "$float";
inline constexpr std::string_view real = "$real";
inline constexpr std::string_view dictionary = "$dictionary";

} // namespace marker

// Whether an object with these entries is a marker: its only key is one of the above. With "$dictionary" as
// the first key it is one even if others follow, so that a reader knows this before the end of the object.
[[nodiscard]] bool isMarker(const Dictionary& entries);

// The value of a marker object with this key and content; absent when the content does not fit the key.
[[nodiscard]] Value valueOfMarker(std::string_view key, const Value& content);

// Reads a date like "2025-01-02T03:04:05.678Z"; none for any other text.
[[nodiscard]] std::optional<Date> dateFromText(std::string_view text);

// "inf", "-inf", "nan", or, for a NaN other than the default one, "nan:0x" and its bits.
[[nodiscard]] std::string textOfNonFinite(float number);
[[nodiscard]] std::string textOfNonFinite(double number);

} // namespace kelvane
