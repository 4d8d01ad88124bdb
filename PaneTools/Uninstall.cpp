// Uninstall PID UID uninstall [FILE]
//
// Stops the current user's local daemon and removes the files that Kelvane has written for that user, if the
// process PID, whose authorization is in the hand-off file, has the right to do so. Writes its completion
// word to that file. $KELVANE_DAEMON names the socket of the daemon.
//
// Exit status: 0 when everything is removed, 64 for invalid arguments, 66 for an invalid hand-off file, 77
// when the right is missing, 69 when polkit cannot be reached, 71 when the daemon could not be stopped or
// something could not be removed; the reason is on standard error.

#include "Foundation/Format.h"
#include "PaneTools/HandOffFile.h"
#include "PaneTools/LocalService.h"
#include "PaneTools/ToolArguments.h"
#include "PaneTools/UserData.h"
#include "PaneTools/UserUnit.h"
#include "Platform/Desktop/Authorization/Authorization.h"
#include "Platform/FileDescriptor.h"

#include <QCoreApplication>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sysexits.h>
#include <unistd.h>

namespace kelvane::tools {
namespace {

constexpr const char* name = "Uninstall";
constexpr const char* usage = "usage: Uninstall PID UID uninstall [FILE], with your own user id";
constexpr const char* right = "com.kelvane.prefs.change";

struct Order {
    std::uint32_t pid = 0;
    std::string handOffPath = HandOffFile::defaultPath;
};

std::optional<Order> orderFrom(int count, char** arguments) {
    if (count < 4 || count > 5 || arguments[3] != std::string_view("uninstall"))
        return std::nullopt;
    const auto pid = decimalNumber(arguments[1]);
    if (!pid || *pid == 0 || decimalNumber(arguments[2]) != ::getuid())
        return std::nullopt;
    Order order{*pid};
    if (count == 5)
        order.handOffPath = arguments[4];
    return order;
}

// Returns 0 when the process has the right.
int checkRight(const std::optional<ProcessIdentity>& process, std::uint32_t pid) {
    if (!process || process->pid != pid || process->uid != ::getuid())
        return complain(name,
                        "the hand-off file contains no authorization for process " + std::to_string(pid),
                        EX_NOPERM);
    switch (checkAuthorization(*process, right)) {
    case AuthorizationAnswer::Granted: return 0;
    case AuthorizationAnswer::Refused:
        return complain(name, "process " + std::to_string(pid) + " is not authorized", EX_NOPERM);
    case AuthorizationAnswer::Unreachable: break;
    }
    return complain(name, "cannot check the authorization: polkit cannot be reached", EX_UNAVAILABLE);
}

// Continues after a failure, to remove as much as possible.
int removeEverything() {
    std::vector<std::string> failures = removeUserData();
    if (const std::string failure = removeOwnUnit(); !failure.empty())
        failures.push_back(failure);
    for (const std::string& failure : failures)
        complain(name, failure, EX_OSERR);
    return failures.empty() ? 0 : EX_OSERR;
}

int uninstall(HandOffFile& handOff, std::uint32_t pid) {
    if (const int status = checkRight(processOfForm(handOff.form()), pid))
        return status;
    // A daemon that is still running would write its settings again.
    if (const std::string reason = defaultDaemonInUse(); !reason.empty())
        return complain(name, reason, EX_OSERR);
    if (const std::string failure = stopLocalDaemon(); !failure.empty())
        return complain(name, failure, EX_OSERR);
    return removeEverything();
}

int run(int& count, char** arguments) {
    if (printsVersion(count, arguments, name))
        return EXIT_SUCCESS;
    const auto order = orderFrom(count, arguments);
    if (!order)
        return complain(name, usage, EX_USAGE);
    const QCoreApplication application(count, arguments);
    const auto handOff = HandOffFile::open(order->handOffPath);
    if (!handOff)
        return complain(name, order->handOffPath + ": " + errorText(), EX_NOINPUT);
    const int status = uninstall(*handOff, order->pid);
    handOff->complete(status == 0 ? HandOffFile::succeeded : static_cast<std::uint32_t>(status));
    return status;
}

} // namespace
} // namespace kelvane::tools

int main(int count, char** arguments) {
    kelvane::prepareProgram();
    std::signal(SIGPIPE, SIG_IGN);
    return kelvane::tools::run(count, arguments);
}
