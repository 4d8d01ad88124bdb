#pragma once

#include "Tools/kelvanectl/Arguments/CommandLine.h"

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

// How many bytes at the beginning of the text are a control character, among them those that change the
// direction of writing and make a name read as another one. 0: none.
[[nodiscard]] std::size_t controlLength(std::string_view text);

// The text on one line, without what a terminal would take for a command: "\x1b".
[[nodiscard]] std::string printable(std::string_view text);
// The same of a name or path; a backslash that could be taken for that of an escape is escaped, too.
[[nodiscard]] std::string printableName(std::string_view name);

// Whether standard output is a terminal that may be written to in colour: $NO_COLOR and a dumb terminal speak
// against it.
[[nodiscard]] bool isColorTerminal();

// How many columns of a terminal it takes: a character may take two of them, or none.
[[nodiscard]] std::size_t columnsOf(std::string_view text);

// "1536 bytes (1.50 KB)".
[[nodiscard]] std::string sizeText(std::uint64_t bytes);

// "1.50 KB"; up to 1,000 bytes exactly.
[[nodiscard]] std::string shortSizeText(std::uint64_t bytes);

void pauseFor(std::chrono::milliseconds duration);

// "3 s", "0.25 s"
[[nodiscard]] std::string durationText(std::chrono::milliseconds duration);

} // namespace kelvane::ctl
