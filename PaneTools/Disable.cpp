// Disable 0 UID unload
//
// Ends the local daemon of the user who runs it, and keeps it from starting again. Ends with 0 when nobody
// serves any more, 64 for arguments that make no sense, 69 when somebody does; standard error says why.
// $KELVANE_DAEMON names the socket of the daemon that is meant.

#include "PaneTools/LocalService.h"
#include "PaneTools/ToolArguments.h"

int main(int count, char** arguments) {
    return kelvane::tools::runSwitch(count, arguments, "Disable", "unload", kelvane::tools::stopLocalDaemon);
}
