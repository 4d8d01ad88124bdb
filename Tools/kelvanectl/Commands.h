#pragma once

#include "Tools/kelvanectl/CommandLine.h"

namespace kelvane::ctl {

ExitStatus runStatus(CommandLine& line);
ExitStatus runWatch(CommandLine& line);
ExitStatus runCall(CommandLine& line);
ExitStatus runDecode(CommandLine& line);
ExitStatus runEncode(CommandLine& line);

// A new command is one row here and one file beside.
inline constexpr CommandRow commands[] = {
    {"status", "", "what the daemon is doing, and what waits", runStatus},
    {"watch", "", "one line for each event, until interrupted", runWatch},
    {"call", "SELECTOR [ARG...]", "call any method of the daemon, print its result as JSON", runCall},
    {"decode", "[FILE]", "a binary property list as JSON", runDecode},
    {"encode", "[FILE]", "JSON as a binary property list", runEncode},
};

} // namespace kelvane::ctl
