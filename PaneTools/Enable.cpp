// Enable 0 UID load
//
// Starts the local daemon of the current user, now and at every log-in. Exit status: 0 when the daemon
// serves, 64 for invalid arguments, 69 when it does not; the reason is on standard error. $KELVANE_DAEMON
// names the socket of the daemon; a daemon at a socket other than the default is not started.

#include "PaneTools/LocalService.h"
#include "PaneTools/ToolArguments.h"

int main(int count, char** arguments) {
    return kelvane::tools::runSwitch(count, arguments, "Enable", "load",
                                     [] { return kelvane::tools::startLocalDaemon(); });
}
