#pragma once

#include "Tools/kelvanectl/Arguments/CommandLine.h"

namespace kelvane::ctl {

Action declareStatus(CLI::App& command);
Action declareAlert(CLI::App& command);
Action declareWatch(CLI::App& command);
Action declareLs(CLI::App& command);
Action declareInfo(CLI::App& command);
Action declareChildren(CLI::App& command);
Action declareExcludeList(CLI::App& command);
Action declareExcludeAdd(CLI::App& command);
Action declareExcludeRemove(CLI::App& command);
Action declareIncludeAdd(CLI::App& command);
Action declareIncludeRemove(CLI::App& command);
Action declareModeEnabled(CLI::App& command);
Action declareModePaused(CLI::App& command);
Action declareModeRecover(CLI::App& command);
Action declareModeDisabled(CLI::App& command);
Action declareBackupNow(CLI::App& command);
Action declareVerify(CLI::App& command);
Action declareRestore(CLI::App& command);
Action declareMatch(CLI::App& command);
Action declareCall(CLI::App& command);
Action declareDecode(CLI::App& command);
Action declareEncode(CLI::App& command);
Action declareHelp(CLI::App& command);
Action declareComplete(CLI::App& command);

inline constexpr const char* addedPatternDetails =
    "A pattern such as '~/Videos/*.iso' stands for the files and folders that match it now, which are "
    "printed;\n"
    "files that come later are not excluded. A rule that also holds for these is an entry "
    "\"policyExcludeList\"\n"
    "in the configuration of the daemon; see kelvane-local-daemon(1).\n"
    "\"*\" matches any characters except \"/\"; \"**\", and any \"*\" at the end, match any characters.";
inline constexpr const char* removedPatternDetails =
    "A pattern such as '~/Videos/*.iso' stands for everything excluded that matches it.\n"
    "\"*\" matches any characters except \"/\"; \"**\", and any \"*\" at the end, match any characters.";

// A new command needs one row here and one function in Commands/.
inline constexpr CommandRow commands[] = {
    {"status", "Show what the daemon is doing and what needs attention", declareStatus},
    {"alert", "List alerts, or perform an action of one", declareAlert},
    {"watch", "Print a line for each event until interrupted", declareWatch},
    {"ls", "List a folder with the state of each item", declareLs},
    {"info", "Show everything that the daemon knows of an item", declareInfo},
    {"children", "List a folder and the folders in it", declareChildren},
    {"exclude", "Change what automatic mode excludes", nullptr},
    {"exclude list", "List what is excluded", declareExcludeList},
    {"exclude add", "Exclude files and folders", declareExcludeAdd, addedPatternDetails},
    {"exclude remove", "Back up excluded files and folders again", declareExcludeRemove,
     removedPatternDetails},
    {"include", "Change what manual mode backs up", nullptr},
    {"include add", "Back up files and folders in manual mode", declareIncludeAdd},
    {"include remove", "Stop backing up files and folders in manual mode", declareIncludeRemove},
    {"mode", "Enable, pause, freeze or disable backup", nullptr},
    {"mode enabled", "Back up; ends a pause and recover mode", declareModeEnabled},
    {"mode paused", "Pause backup for a time", declareModePaused,
     "DURATION is a number of minutes, or has a unit: 30m, 2h, 3d (default: 1d)."},
    {"mode recover", "Freeze the backup while files are restored", declareModeRecover},
    {"mode disabled", "Back up nothing until another mode is chosen", declareModeDisabled},
    {"backup", "Start a backup", nullptr},
    {"backup now", "Back up pending files at once", declareBackupNow},
    {"restore", "Restore files and folders from the backup", declareRestore},
    {"verify", "Read and check everything in the backup", declareVerify},
    {"match", "Test which texts a pattern matches", declareMatch},
    {"call", "Call a method of the daemon and print its result as JSON", declareCall,
     "Everything after SELECTOR is an argument of the method, even if it looks like an option."},
    {"decode", "Convert a binary property list to JSON", declareDecode},
    {"encode", "Convert JSON to a binary property list", declareEncode},
    {"help", "Show the help of a command", declareHelp},
    {"complete", "", declareComplete}, // For the completion scripts of the shells.
};

} // namespace kelvane::ctl
