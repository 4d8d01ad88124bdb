#pragma once

#include "Foundation/Value.h"

#include <string>
#include <string_view>

namespace kelvane::ctl {

struct ArgumentReading {
    Value value;
    std::string error; // Empty on success.
};

// Converts the text typed for an argument of a remote method, by the argument's type code. An object is JSON;
// text that does not begin like JSON is the string itself. A number must be within the range of its type; a
// boolean may be "true" or "false".
[[nodiscard]] ArgumentReading argumentFromText(std::string_view type, const std::string& text);

} // namespace kelvane::ctl
