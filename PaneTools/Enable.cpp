// Enable 0 UID load
//
// Starts the local daemon of the user who runs it, now and at every log-in. Ends with 0 when the daemon
// serves, 64 for arguments that make no sense, 69 when it does not; standard error says why. $KELVANE_DAEMON
// names the socket of the daemon that is meant; one that is not at the usual place is not started.

#include "PaneTools/LocalService.h"
#include "PaneTools/ToolArguments.h"

int main(int count, char** arguments) {
    return kelvane::tools::runSwitch(count, arguments, "Enable", "load",
                                     [] { return kelvane::tools::startLocalDaemon(); });
}
