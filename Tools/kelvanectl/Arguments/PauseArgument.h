#pragma once

#include <CLI/App.hpp>
#include <cstdint>
#include <ctime>
#include <string>

namespace kelvane::ctl {

// Adds DURATION: minutes, or a number with a unit.
CLI::Option* addDuration(CLI::App& command, std::uint64_t& minutes, const std::string& description);

// Returns the minutes from `now` until a time of day, which is tomorrow's when today's has passed, or until a
// date and time; rounded up, so that a pause does not end early. Local time. Throws CLI::ParseError for
// other texts and for a time in the past.
[[nodiscard]] std::uint32_t minutesUntil(const std::string& text, std::time_t now);

} // namespace kelvane::ctl
