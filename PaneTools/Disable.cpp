// Disable 0 UID unload
//
// Stops the local daemon of the current user and disables its automatic start. Exit status: 0 when no daemon
// serves any more, 64 for invalid arguments, 69 when one still does; the reason is on standard error.
// $KELVANE_DAEMON names the socket of the daemon.

#include "PaneTools/LocalService.h"
#include "PaneTools/ToolArguments.h"

int main(int count, char** arguments) {
    return kelvane::tools::runSwitch(count, arguments, "Disable", "unload", kelvane::tools::stopLocalDaemon);
}
