#include "PaneTools/LocalService.h"

#include "Common/KelvProxy.h"
#include "Common/Protocols.h"
#include "Foundation/Format.h"
#include "PaneTools/UserUnit.h"
#include "Platform/Processes/DetachedProgram.h"
#include "Platform/SocketClaim.h"
#include "Platform/SpecialFolders.h"
#include "Support/AgentLauncher.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kelvane::tools {
namespace {

constexpr const char* daemonName = "kelvane-local-daemon";
constexpr const char* trampolineName = "kelvane-trampoline";
constexpr int pollMilliseconds = 50;

constexpr const char* noFolder =
    "no folder for the daemon's socket: $XDG_RUNTIME_DIR is not usable and /tmp/kelvane-UID is not private";

// The socket of the daemon in question.
struct DaemonSocket {
    std::string path;
    bool isDefault = true; // Only a daemon at the default socket is started here.
};
enum class Server { None, LocalDaemon, Other };

// The pane, and anyone who uses another daemon, names the socket in the environment.
std::optional<DaemonSocket> daemonSocket() {
    const auto usual = defaultDaemonPath();
    const char* const named = std::getenv("KELVANE_DAEMON");
    if (named == nullptr || *named == '\0')
        return usual ? std::optional(DaemonSocket{*usual}) : std::nullopt;
    return DaemonSocket{named, named == usual};
}

// Compares only the beginning of the program's name: the kernel appends " (deleted)" when the file of the
// running program has been replaced.
bool isLocalDaemon(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    std::array<char, PATH_MAX> target{};
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.uid != ::getuid())
        return false;
    const std::string link = "/proc/" + std::to_string(peer.pid) + "/exe";
    const ssize_t length = ::readlink(link.c_str(), target.data(), target.size());
    const std::string_view program(target.data(), length < 0 ? 0 : static_cast<std::size_t>(length));
    return program.substr(program.rfind('/') + 1).starts_with(daemonName);
}

Server serverAt(const std::string& path) {
    const SocketProbe probe = probeSocket(path);
    if (probe.error == EAGAIN) // Its backlog is full: some daemon listens.
        return Server::LocalDaemon;
    if (probe.error != 0)
        return Server::None;
    return isLocalDaemon(probe.socket.get()) ? Server::LocalDaemon : Server::Other;
}

std::string notLocalDaemon(const std::string& path) {
    return "the daemon at " + path + " is not your local daemon and cannot be started or stopped from here";
}

bool waitForServer(const std::string& path, bool isWanted, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while ((serverAt(path) != Server::None) != isWanted) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        ::poll(nullptr, 0, pollMilliseconds);
    }
    return true;
}

// The trampoline waits for the process that starts it to end, so a child process starts it.
std::string launch(const std::string& daemon) {
    const auto trampoline = findProgram(trampolineName);
    if (!trampoline)
        return std::string(trampolineName) + " is neither beside this program nor in PATH";
    const pid_t asking = ::fork();
    if (asking < 0)
        return "cannot start another process: " + errorText();
    if (asking == 0) {
        KelvaneTrampoline::trampoline(*trampoline, daemon, static_cast<std::uint32_t>(::getpid()),
                                      KelvaneTrampoline::launchDaemon);
        ::_exit(0);
    }
    ::waitpid(asking, nullptr, 0);
    return {};
}

void requestTermination(const std::string& path) {
    const auto socket = KelvaneSocket::create();
    if (!socket->connectToPath(path))
        return; // It has already ended.
    const auto proxy = KelvaneProxy::create();
    proxy->setProtocol(KelvaneDaemonProtocol);
    proxy->setSocket(socket);
    proxy->call<"terminate">();
}

} // namespace

std::string startLocalDaemon(std::chrono::milliseconds timeout) {
    const auto target = daemonSocket();
    if (!target)
        return noFolder;
    const Server server = serverAt(target->path);
    if (server == Server::Other)
        return notLocalDaemon(target->path);
    const bool isAlreadyServing = server == Server::LocalDaemon;
    if (!target->isDefault)
        return isAlreadyServing ? ""
                                : "no daemon is listening at " + target->path +
                                      "; only a daemon at the default socket can be started from here";
    const auto daemon = findProgram(daemonName);
    if (!daemon)
        return std::string(daemonName) + " is neither beside this program nor in PATH";
    std::string failure;
    if (hasUserManager())
        failure = enableUnit(*daemon, !isAlreadyServing);
    else if (!isAlreadyServing)
        failure = launch(*daemon);
    if (failure.empty() && !waitForServer(target->path, true, timeout))
        failure = *daemon + " was started, but nothing is listening at " + target->path;
    return failure;
}

std::string stopLocalDaemon() {
    const auto target = daemonSocket();
    if (!target)
        return noFolder;
    if (serverAt(target->path) == Server::Other)
        return notLocalDaemon(target->path);
    std::string failure;
    if (target->isDefault && hasUserManager() && hasUnit())
        failure = disableUnit();
    if (serverAt(target->path) != Server::None)
        requestTermination(target->path);
    if (failure.empty() && !waitForServer(target->path, false, defaultTimeout))
        failure = "the daemon at " + target->path + " was asked to stop but is still running";
    KelvaneSocket::waitForThreads();
    return failure;
}

std::string defaultDaemonInUse() {
    const auto target = daemonSocket();
    const auto usual = defaultDaemonPath();
    if (!target || target->isDefault || !usual || serverAt(*usual) == Server::None)
        return {};
    return "the daemon at " + *usual + " is still running and uses the files to be removed; stop it first";
}

} // namespace kelvane::tools
