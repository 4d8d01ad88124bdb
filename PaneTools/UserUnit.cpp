#include "PaneTools/UserUnit.h"

#include "Foundation/Format.h"
#include "Platform/FileContents.h"
#include "Platform/Processes/ChildProcess.h"
#include "Platform/SpecialFolders.h"

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace kelvane::tools {
namespace {

constexpr const char* packagedUnits = "/usr/lib/systemd/user/";
constexpr mode_t unitMode = 0644;

std::string ownUnitFolder() {
    return configurationFolder() + "/systemd/user";
}

std::string ownUnitPath() {
    return ownUnitFolder() + '/' + daemonUnit;
}

bool isThere(const std::string& path) {
    return ::access(path.c_str(), F_OK) == 0;
}

std::string manage(std::vector<std::string> order) {
    order.insert(order.begin(), {"systemctl", "--user", "--quiet"});
    std::string text;
    for (const std::string& word : order)
        text += (text.empty() ? "" : " ") + word;
    auto process = ChildProcess::start({.arguments = std::move(order)});
    if (!process)
        return "cannot start " + text + ": " + errorText();
    process->waitForEnd();
    const int status = process->exitStatus();
    return status == 0 ? "" : text + " ended with status " + std::to_string(status);
}

std::string writeOwnUnit(const std::string& program) {
    if (!ensureFolder(ownUnitFolder()))
        return "cannot create the folder " + ownUnitFolder() + ": " + errorText();
    const std::string text = unitText(program);
    const std::vector<std::uint8_t> bytes(text.begin(), text.end());
    return replaceFileAtomically(ownUnitPath(), bytes, unitMode).reason;
}

} // namespace

// Checks for the manager's private socket, which exists while it runs.
bool hasUserManager() {
    const auto runtime = runtimeFolder();
    return runtime && isThere(*runtime + "/systemd/private");
}

bool hasUnit() {
    return isThere(ownUnitPath()) || isThere(std::string(packagedUnits) + daemonUnit);
}

std::string enableUnit(const std::string& program, bool startNow) {
    // The user's own unit overrides the package's and may start a program that no longer exists.
    std::string failure =
        isThere(std::string(packagedUnits) + daemonUnit) ? removeOwnUnit() : writeOwnUnit(program);
    if (failure.empty())
        failure = manage({"daemon-reload"});
    if (failure.empty())
        failure = manage(startNow ? std::vector<std::string>{"enable", "--now", daemonUnit}
                                  : std::vector<std::string>{"enable", daemonUnit});
    return failure;
}

std::string disableUnit() {
    return manage({"disable", "--now", daemonUnit});
}

// Also removes the link that starts the unit at log-in, which stays when no manager runs that could remove
// it.
std::string removeOwnUnit() {
    bool isChanged = false;
    for (const std::string& path : {ownUnitFolder() + "/default.target.wants/" + daemonUnit, ownUnitPath()}) {
        std::error_code error;
        isChanged |= std::filesystem::remove(path, error);
        if (error)
            return "cannot remove " + path + ": " + error.message();
    }
    return isChanged && hasUserManager() ? manage({"daemon-reload"}) : "";
}

// Quotes the path for the manager: a percent sign would start a specifier.
std::string unitText(const std::string& program) {
    std::string quoted;
    for (const char byte : program) {
        if (byte == '"' || byte == '\\')
            quoted += '\\';
        quoted += byte;
        if (byte == '%')
            quoted += '%';
    }
    return R"([Unit]
Description=Kelvane's backup daemon for this user

[Service]
ExecStart=")" +
           quoted + R"("
Restart=on-failure
RestartSec=10
# The daemon ends the programs that it needs by itself; the window that it has opened is the user's.
KillMode=process

[Install]
WantedBy=default.target
)";
}

} // namespace kelvane::tools
