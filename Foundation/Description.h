#pragma once

#include <string>

namespace kelvane {

class Value;
struct Date;

// Returns the text of `Value::description`.
[[nodiscard]] std::string describe(const Value& value);

// Returns a date as "2025-01-02T03:04:05Z", with as many decimals of the second as are needed to represent
// it exactly. The text is empty for a date outside the years 1 to 9999.
[[nodiscard]] std::string iso8601(Date date);

} // namespace kelvane
