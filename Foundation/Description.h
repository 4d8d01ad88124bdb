#pragma once

#include <string>

namespace kelvane {

class Value;
struct Date;

// What `Value::description` returns.
[[nodiscard]] std::string describe(const Value& value);

// "2025-01-02T03:04:05Z", with as many decimals of the second as it takes to name the date exactly; empty for
// a date outside the years 1 to 9999.
[[nodiscard]] std::string iso8601(Date date);

} // namespace kelvane
