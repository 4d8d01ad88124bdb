#include "LocalDaemon/Configuration.h"

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

} // namespace

Configuration readConfiguration(const std::string& path) {
    Configuration configuration;
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
    return configuration;
}

std::uint32_t numberOfThisComputer() {
    const std::uint32_t number = hashOf("kelvane computer number " + machineIdentity()) & 0x7FFFFFFFU;
    return number == 0 ? 1 : number;
}

} // namespace kelvane
