#include "Tools/Auxiliary/LocalService.h"

#include "Common/KelvProxy.h"
#include "Common/Protocols.h"
#include "Platform/SpecialFolders.h"
#include "Support/AgentLauncher.h"
#include "Tools/Auxiliary/UserUnit.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kelvane::tools {
namespace {

constexpr const char* daemonName = "kelvane-local-daemon";
constexpr const char* trampolineName = "kelvane-trampoline";
constexpr std::chrono::seconds patience(10);
constexpr int lookMilliseconds = 50;

constexpr const char* noFolder = "there is no folder for the daemon's socket that only you can reach";

std::string folderOfThisProgram() {
    std::array<char, PATH_MAX> path{};
    const ssize_t size = ::readlink("/proc/self/exe", path.data(), path.size());
    const std::string program(path.data(), size < 0 ? 0 : static_cast<std::size_t>(size));
    return program.substr(0, program.rfind('/'));
}

bool isServing(const std::string& path) {
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (!socket)
        return false;
    // One whose queue of callers is full is busy, but there.
    return ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
           errno == EAGAIN;
}

bool becomesServing(const std::string& path, bool isWanted) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (isServing(path) != isWanted) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        ::poll(nullptr, 0, lookMilliseconds);
    }
    return true;
}

// The trampoline waits for the end of the process that asks it, so a child asks.
std::string launch(const std::string& daemon) {
    const auto trampoline = findProgram(trampolineName);
    if (!trampoline)
        return std::string(trampolineName) + " is neither beside this program nor on the PATH";
    const pid_t asking = ::fork();
    if (asking < 0)
        return "there is no room for another process";
    if (asking == 0) {
        KelvaneTrampoline::trampoline(*trampoline, daemon, static_cast<std::uint32_t>(::getpid()),
                                      KelvaneTrampoline::launchDaemon);
        ::_exit(0);
    }
    ::waitpid(asking, nullptr, 0);
    return {};
}

void tellToTerminate(const std::string& path) {
    const auto socket = KelvaneSocket::create();
    if (!socket->connectToPath(path))
        return; // it has ended by itself
    const auto proxy = KelvaneProxy::create();
    proxy->setProtocol(KelvaneDaemonProtocol);
    proxy->setSocket(socket);
    proxy->call<"terminate">();
}

} // namespace

std::optional<std::string> findProgram(const std::string& name) {
    const char* const path = std::getenv("PATH");
    std::istringstream folders(folderOfThisProgram() + ':' + (path ? path : ""));
    for (std::string folder; std::getline(folders, folder, ':');) {
        folder.append("/").append(name);
        if (folder.starts_with('/') && ::access(folder.c_str(), X_OK) == 0)
            return folder;
    }
    return std::nullopt;
}

std::string startLocalDaemon() {
    const auto path = defaultDaemonPath();
    if (!path)
        return noFolder;
    const auto daemon = findProgram(daemonName);
    if (!daemon)
        return std::string(daemonName) + " is neither beside this program nor on the PATH";
    const bool isAlreadyServing = isServing(*path);
    std::string failure;
    if (hasUserManager())
        failure = enableUnit(*daemon, !isAlreadyServing);
    else if (!isAlreadyServing)
        failure = launch(*daemon);
    if (failure.empty() && !becomesServing(*path, true))
        failure = *daemon + " was started, but nobody serves " + *path;
    return failure;
}

std::string stopLocalDaemon() {
    const auto path = defaultDaemonPath();
    if (!path)
        return noFolder;
    std::string failure;
    if (hasUserManager() && hasUnit())
        failure = disableUnit();
    if (isServing(*path))
        tellToTerminate(*path);
    if (failure.empty() && !becomesServing(*path, false))
        failure = "the daemon at " + *path + " was told to end and still serves";
    KelvaneSocket::waitForThreads();
    return failure;
}

} // namespace kelvane::tools
