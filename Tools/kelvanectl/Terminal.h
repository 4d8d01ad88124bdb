#pragma once

#include "Tools/kelvanectl/CommandLine.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kelvane::ctl {

// Writes all of it to standard output at once. False: it failed, and errno says why.
[[nodiscard]] bool writeOutput(std::string_view text);
[[nodiscard]] bool writeOutput(std::span<const std::uint8_t> bytes);

// The same as a command's last step: a failure is complained about.
[[nodiscard]] ExitStatus finishWith(std::string_view output);
[[nodiscard]] ExitStatus finishWith(std::span<const std::uint8_t> output);

// One line on standard error. Returns `status`.
ExitStatus complain(ExitStatus status, std::string_view reason);

// The text on one line, without what a terminal would take for a command.
[[nodiscard]] std::string printable(std::string_view text);

// "1536 bytes (1.50 KB)".
[[nodiscard]] std::string sizeText(std::uint64_t bytes);

// "3 s", "0.25 s"
[[nodiscard]] std::string durationText(std::chrono::milliseconds duration);

} // namespace kelvane::ctl
