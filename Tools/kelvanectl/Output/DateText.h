#pragma once

#include "Foundation/Value.h"

#include <string>

namespace kelvane::ctl {

// In local time, as the user's locale has it; "2025-01-02 03:04" where that is the C locale, whose own form
// leaves it open which number is the month.
[[nodiscard]] std::string dateText(Date date);

} // namespace kelvane::ctl
