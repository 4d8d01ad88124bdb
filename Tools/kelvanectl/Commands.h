#pragma once

#include "Tools/kelvanectl/CommandLine.h"

namespace kelvane::ctl {

ExitStatus runStatus(CommandLine& line);
ExitStatus runAlert(CommandLine& line);
ExitStatus runWatch(CommandLine& line);
ExitStatus runLs(CommandLine& line);
ExitStatus runInfo(CommandLine& line);
ExitStatus runChildren(CommandLine& line);
ExitStatus runRules(CommandLine& line);
ExitStatus runMode(CommandLine& line);
ExitStatus runBackup(CommandLine& line);
ExitStatus runVerify(CommandLine& line);
ExitStatus runRestore(CommandLine& line);
ExitStatus runMatch(CommandLine& line);
ExitStatus runCall(CommandLine& line);
ExitStatus runDecode(CommandLine& line);
ExitStatus runEncode(CommandLine& line);

// A new command is one row here and one file beside.
inline constexpr CommandRow commands[] = {
    {"status", "", "what the daemon is doing, and what waits", runStatus},
    {"alert", "[ID ACTION]", "the alerts that stand, or one of their actions", runAlert},
    {"watch", "", "one line for each event, until interrupted", runWatch},
    {"ls", "PATH", "a folder: what of it is in the backup", runLs},
    {"info", "PATH [--dir-sizes]", "all that the daemon knows of an item", runInfo},
    {"children", "PATH [--depth N]", "all below a folder, N levels deep", runChildren},
    {"exclude", "list|add|remove [PATH...]", "what automatic backup leaves out", runRules},
    {"include", "add|remove PATH...", "what manual backup takes in", runRules},
    {"mode", "MODE [MINUTES]", "enabled, paused, recover or disabled", runMode},
    {"backup", "now [--wait]", "what waits is backed up at once", runBackup},
    {"restore", "PATH... [--to DIR] [--wait]", "what is in the backup, to its place or to DIR", runRestore},
    {"verify", "[--wait]", "reads and checks all that is in the backup", runVerify},
    {"match", "PATTERN TEXT...", "which texts an exclusion pattern matches", runMatch},
    {"call", "SELECTOR [ARG...]", "any method of the daemon, its result as JSON", runCall},
    {"decode", "[FILE]", "a binary property list as JSON", runDecode},
    {"encode", "[FILE]", "JSON as a binary property list", runEncode},
};

} // namespace kelvane::ctl
