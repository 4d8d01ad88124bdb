#include "LocalDaemon/Configuration.h"

#include "Foundation/PathComponents.h"
#include "LocalDaemon/CleanPath.h"
#include "Platform/FileContents.h"
#include "Platform/PropertyListFile.h"
#include "Support/Logging.h"

#include <array>
#include <cerrno>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr const char* machineIdentityFile = "/etc/machine-id";
constexpr std::size_t largestIdentity = 4096;

constexpr const char* policyBelowHome[] = {".cache/", ".local/share/Trash/"};
constexpr const char* policyOfMachine[] = {"/dev/", "/proc/", "/run/", "/sys/"};

std::string machineIdentity() {
    const FileReading file = readFile(machineIdentityFile, largestIdentity, SymbolicLinks::Follow);
    if (!file.bytes.empty())
        return {file.bytes.begin(), file.bytes.end()};
    std::array<char, 256> hostName{};
    ::gethostname(hostName.data(), hostName.size() - 1);
    return hostName.data();
}

// FNV-1a.
std::uint32_t hashOf(const std::string& text) {
    std::uint32_t hash = 2166136261U;
    for (const char byte : text)
        hash = (hash ^ static_cast<unsigned char>(byte)) * 16777619U;
    return hash;
}

// Mapped as a path is, which costs it its last separator.
std::string withItsEnd(const std::string& mapped, const std::string& pattern) {
    return pattern.ends_with('/') ? withSeparator(mapped) : mapped;
}

std::vector<std::string> defaultPolicy(const std::string& home) {
    std::vector<std::string> policy(std::begin(policyOfMachine), std::end(policyOfMachine));
    for (const char* pattern : policyBelowHome)
        policy.push_back(withSeparator(home) + pattern);
    return policy;
}

std::vector<std::string> policyFrom(const Value& patterns, const Volumes& volumes) {
    std::vector<std::string> policy;
    for (const Value& each : patterns.array()) {
        const std::string& pattern = each.stringValue();
        const auto real = volumes.realPath(pattern);
        if (real && isAbsolutePath(pattern) && (pattern.ends_with('/') || pattern.ends_with('*')))
            policy.push_back(withItsEnd(*real, pattern));
        else
            KelvaneSystemLog("A pattern of the policy is left out, for it is no absolute path in a volume of "
                             "this machine that ends in \"/\" or \"*\": %@",
                             each);
    }
    return policy;
}

} // namespace

Configuration readConfiguration(const std::string& path, const std::string& home, const Volumes& volumes) {
    Configuration configuration;
    configuration.home = home;
    const FileReading file = readFile(path, largestPropertyListFile, SymbolicLinks::Follow);
    PropertyListReading list;
    if (file.succeeded())
        list = readPropertyList(file.bytes);
    else if (file.error != ENOENT)
        list.error = file.reason;
    if (!list.succeeded())
        KelvaneSystemLog("The configuration in %@ is not used: %@", path, list.error);
    if (list.value["serverURL"].isString())
        configuration.serverURL = list.value["serverURL"].stringValue();
    configuration.userEmail = list.value["userEmail"].stringValue();
    configuration.quotaMB = list.value["quotaMB"].uint32Value();
    configuration.computerNumber = list.value["computerNumber"].uint32Value();
    if (configuration.computerNumber == 0)
        configuration.computerNumber = numberOfThisComputer();
    const Value& patterns = list.value["policyExcludeList"];
    configuration.policy = patterns.isArray() ? policyFrom(patterns, volumes) : defaultPolicy(home);
    return configuration;
}

std::string volumePattern(const std::string& pattern, const Volumes& volumes) {
    return withItsEnd(volumes.volumePath(pattern), pattern);
}

std::uint32_t numberOfThisComputer() {
    const std::uint32_t number = hashOf("kelvane computer number " + machineIdentity()) & 0x7FFFFFFFU;
    return number == 0 ? 1 : number;
}

} // namespace kelvane
