#include "Platform/SpecialFolders.h"

#include "Platform/FileDescriptor.h"
#include "Platform/SocketAddress.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <vector>

namespace kelvane {
namespace {

constexpr mode_t privateMode = 0700;
constexpr mode_t permissionsOfOthers = 077;

std::optional<std::string> folderFromEnvironment(const char* variable) {
    const char* const value = std::getenv(variable);
    if (value == nullptr || *value != '/')
        return std::nullopt;
    std::string path = value;
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

std::string accountHomeFolder() {
    std::vector<char> buffer(std::size_t{16} << 10U);
    passwd account{};
    passwd* found = nullptr;
    if (::getpwuid_r(::geteuid(), &account, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
        found->pw_dir != nullptr && *found->pw_dir == '/')
        return found->pw_dir;
    return "/";
}

std::string belowHome(const char* variable, const std::string& otherwise) {
    if (auto folder = folderFromEnvironment(variable))
        return *std::move(folder);
    const std::string home = homeFolder();
    return (home == "/" ? "" : home) + otherwise;
}

std::optional<std::string> sharedRuntimeFolder() {
    std::string path = "/tmp/kelvane-" + std::to_string(::geteuid());
    if (!ensurePrivateFolder(path))
        return std::nullopt;
    return path;
}

std::string daemonPathIn(const std::string& folder) {
    return folder + "/kelvane/daemon.sock";
}

} // namespace

std::string homeFolder() {
    auto folder = folderFromEnvironment("HOME");
    return folder ? *std::move(folder) : accountHomeFolder();
}

std::string expandingTilde(const std::string& path) {
    return path.starts_with("~/") ? homeFolder() + path.substr(1) : path;
}

std::string configurationFolder() {
    return belowHome("XDG_CONFIG_HOME", "/.config");
}
std::string dataFolder() {
    return belowHome("XDG_DATA_HOME", "/.local/share");
}
std::string stateFolder() {
    return belowHome("XDG_STATE_HOME", "/.local/state");
}
std::string cacheFolder() {
    return belowHome("XDG_CACHE_HOME", "/.cache");
}
std::string temporaryFolder() {
    return folderFromEnvironment("TMPDIR").value_or("/tmp");
}

std::optional<std::string> runtimeFolder() {
    auto folder = folderFromEnvironment("XDG_RUNTIME_DIR");
    return folder ? folder : sharedRuntimeFolder();
}

std::optional<std::string> defaultDaemonPath() {
    const auto folder = folderFromEnvironment("XDG_RUNTIME_DIR");
    if (folder && daemonPathIn(*folder).size() <= longestSocketPath)
        return daemonPathIn(*folder);
    const auto shared = sharedRuntimeFolder();
    return shared ? std::optional(daemonPathIn(*shared)) : std::nullopt;
}

std::string defaultLogPath() {
    return stateFolder() + "/kelvane/daemon.log";
}

bool ensurePrivateFolder(const std::string& path) {
    if (::mkdir(path.c_str(), privateMode) != 0 && errno != EEXIST)
        return false;
    // Checked through a descriptor: in a shared folder the path may have become somebody else's folder, or a
    // link.
    const FileDescriptor folder(::open(path.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    return folder && ::fstat(folder.get(), &status) == 0 && status.st_uid == ::geteuid() &&
           (status.st_mode & permissionsOfOthers) == 0;
}

bool ensureFolder(const std::string& path) {
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        if (::mkdir(part.c_str(), privateMode) != 0 && errno != EEXIST)
            return false;
        if (end == std::string::npos)
            break;
    }
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace kelvane
