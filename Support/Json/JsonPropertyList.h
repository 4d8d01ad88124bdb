#pragma once

#include "Foundation/Value.h"

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace kelvane {

// Converts property lists to JSON and back without loss, including the order of a dictionary. A value that
// has no form in JSON becomes an object with one key:
//
//   {"$date": "2025-01-02T03:04:05Z"}  a date, with all its decimals
//   {"$date": 1.5e300}                 a date outside the years 1 to 9999: seconds since 2001
//   {"$data": "base64"}                bytes
//   {"$float": 1.5}                    a real of four bytes
//   {"$real": "nan"}                   "nan", "inf", "-inf", or "nan:0x..." with the bits of another NaN
//   {"$float": "nan"}                  likewise, of four bytes
//   {"$dictionary": {...}}             a dictionary that would be read as one of these
//
// Numbers with a point or an exponent are reals, all others integers.
//
// Pure functions, callable on any thread.

// An absent value becomes null, which `propertyListFromJson` refuses.
[[nodiscard]] nlohmann::ordered_json jsonFromPropertyList(const Value& value);

struct JsonReading {
    Value value;       // absent when refused
    std::string error; // why it was refused, and at which line and column; empty on success

    [[nodiscard]] bool succeeded() const { return error.empty(); }
};

// Refuses text that is not JSON in UTF-8, null, a repeated key, an integer of more than 64 bits, a marker
// with unsuitable content, other keys after "$dictionary", and more than `deepestNesting` levels. Any other
// marker key beside other keys is an ordinary key.
[[nodiscard]] JsonReading propertyListFromJson(std::string_view text);

} // namespace kelvane
