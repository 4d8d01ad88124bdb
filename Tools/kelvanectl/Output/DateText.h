#pragma once

#include "Foundation/Value.h"

#include <string>

namespace kelvane::ctl {

// Returns local time in the format of the user's locale; "2025-01-02 03:04" in the C locale, whose own
// format does not tell the month from the day.
[[nodiscard]] std::string dateText(Date date);

} // namespace kelvane::ctl
