#pragma once

#include "Tools/kelvanectl/Arguments/CommandLine.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kelvane::ctl {

// Writes everything to standard output at once. Returns false and sets errno on failure.
[[nodiscard]] bool writeOutput(std::string_view text);
[[nodiscard]] bool writeOutput(std::span<const std::uint8_t> bytes);

// Does the same as the last step of a command: a failure is reported on standard error.
[[nodiscard]] ExitStatus finishWith(std::string_view output);
[[nodiscard]] ExitStatus finishWith(std::span<const std::uint8_t> output);

// Prints one line on standard error. Returns `status`.
ExitStatus complain(ExitStatus status, std::string_view reason);

// Returns the length in bytes of a control character at the beginning of the text, 0 for none.
// Characters that change the writing direction, and can disguise a name, count as well.
[[nodiscard]] std::size_t controlLength(std::string_view text);

// Returns the text on one line, with control characters escaped as in "\x1b".
[[nodiscard]] std::string printable(std::string_view text);
// Does the same for a name or path, and escapes a backslash that could be taken for the beginning of an
// escape.
[[nodiscard]] std::string printableName(std::string_view name);

// Whether standard output is a terminal with colours: not when $NO_COLOR is set and not empty, or when $TERM
// is missing or "dumb".
[[nodiscard]] bool isColorTerminal();

// Returns the width in terminal columns, of which a character may take two or none.
[[nodiscard]] std::size_t columnsOf(std::string_view text);

// Returns, for example, "1536 bytes (1.50 KB)".
[[nodiscard]] std::string sizeText(std::uint64_t bytes);

// Returns, for example, "1.50 KB"; exact bytes up to 1,000.
[[nodiscard]] std::string shortSizeText(std::uint64_t bytes);

void pauseFor(std::chrono::milliseconds duration);

// Returns, for example, "3 s" or "0.25 s".
[[nodiscard]] std::string durationText(std::chrono::milliseconds duration);

} // namespace kelvane::ctl
