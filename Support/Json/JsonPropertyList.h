#pragma once

#include "Foundation/Value.h"

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace kelvane {

// Property lists as JSON and back, exact both ways, the order of a dictionary included. What JSON has no form
// for is an object with one key:
//
//   {"$date": "2025-01-02T03:04:05Z"}  a date, with all its decimals
//   {"$date": 1.5e300}                 one that no calendar from year 1 to 9999 names: seconds since 2001
//   {"$data": "base64"}                bytes
//   {"$float": 1.5}                    a real of four bytes
//   {"$real": "nan"}                   "nan", "inf", "-inf", or "nan:0x..." with the bits of another NaN
//   {"$float": "nan"}                  likewise, of four bytes
//   {"$dictionary": {...}}             a dictionary that would be taken for one of these
//
// Numbers with a point or an exponent are reals, all others integers.
//
// Pure functions, for any thread.

// An absent value becomes null, which `propertyListFromJson` refuses.
[[nodiscard]] nlohmann::ordered_json jsonFromPropertyList(const Value& value);

struct JsonReading {
    Value value;       // absent when refused
    std::string error; // why it was refused, and at which line and column; empty on success

    [[nodiscard]] bool succeeded() const { return error.empty(); }
};

// Refused: what is no JSON in UTF-8, null, a key that stands twice, an integer beyond 64 bits, a marker whose
// content is not its own, "$dictionary" in company, more than `deepestNesting` levels. Another marker in
// company is a key like any other.
[[nodiscard]] JsonReading propertyListFromJson(std::string_view text);

} // namespace kelvane
