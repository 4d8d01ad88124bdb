#include "LocalDaemon/State/Settings/ComputerNumber.h"

#include "Foundation/Checksum.h"
#include "Foundation/CleanPath.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <span>
#include <string_view>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr const char* machineIdentityFile = "/etc/machine-id";
constexpr std::size_t largestIdentity = 4096;
constexpr std::size_t largestNumber = 16; // Length of its text in bytes.
constexpr std::uint32_t highest = 0x7FFFFFFFU;

std::string machineIdentity() {
    const FileReading file = readFile(machineIdentityFile, largestIdentity, SymbolicLinks::Follow);
    if (!file.bytes.empty())
        return {file.bytes.begin(), file.bytes.end()};
    std::array<char, 256> hostName{};
    ::gethostname(hostName.data(), hostName.size() - 1);
    return hostName.data();
}

std::uint32_t numberFrom(const std::string& text) {
    return std::max(checksumOf<std::uint32_t>(text) & highest, 1U);
}

std::uint32_t numberIn(const Data& text) {
    const auto* const begin = reinterpret_cast<const char*>(text.data());
    const char* const end = begin + text.size();
    std::uint32_t number = 0;
    const char* const rest = std::from_chars(begin, end, number).ptr;
    return number <= highest && (rest == end || *rest == '\n') ? number : 0;
}

bool hasIndex(const std::string& indexPath) {
    std::error_code error;
    const std::filesystem::directory_iterator files(std::string(folderOf(indexPath)), error);
    return std::any_of(begin(files), end(files),
                       [&](const auto& file) { return file.path().string().starts_with(indexPath); });
}

std::string copyOf(const std::string& indexPath) {
    return std::string(folderOf(indexPath)) + "/local-daemon-number";
}

// The user may have changed the number in one file; a failing disk does not change the file's time.
bool isNewer(const std::string& path, const std::string& other) {
    std::error_code error;
    return std::filesystem::last_write_time(path, error) > std::filesystem::last_write_time(other, error);
}

bool isMissing(const FileReading& file) {
    return file.error == ENOENT || file.error == ENOTDIR;
}

std::string keep(std::uint32_t number, const std::string& path) {
    return replacePrivateFile(path, std::to_string(number) + '\n').reason;
}

} // namespace

ComputerNumber computerNumber(const std::string& path, const std::string& indexPath) {
    const std::string copyPath = copyOf(indexPath);
    const FileReading file = readFile(path, largestNumber, SymbolicLinks::Follow);
    const FileReading copy = readFile(copyPath, largestNumber, SymbolicLinks::Follow);
    const std::uint32_t copied = numberIn(copy.bytes);
    if (const std::uint32_t number = numberIn(file.bytes);
        number != 0 && (copied == 0 || copied == number || isNewer(path, copyPath))) {
        if (const std::string failure = copied == number ? "" : keep(number, copyPath); !failure.empty())
            logWarning("The copy of the computer number cannot be written: %@", failure);
        return {number, {}};
    }
    if (copied != 0) {
        const std::string failure = isMissing(file) ? keep(copied, path) : file.reason;
        logWarning("The number of this computer is taken from %@, since %@ is missing or damaged. %@",
                   copyPath, path, failure);
        return {copied, {}};
    }
    if (!isMissing(file))
        return {0, "the number of this computer cannot be read, and without it its backup cannot be found: " +
                       (file.succeeded() ? path : file.reason)};
    const std::string machine = "kelvane computer number " + machineIdentity();
    const std::uint32_t own = numberFrom(machine);
    const bool isInUse = hasIndex(indexPath);
    const std::uint32_t number =
        isInUse ? own : numberFrom(machine + indexPath + '\n' + std::to_string(::geteuid()));
    const std::string failure = keep(number, path) + keep(number, copyPath);
    if (isInUse || !failure.empty())
        logWarning("%@ is missing: the number of this computer is %u, which is derived from the machine "
                   "alone. %@",
                   path, own, failure);
    return {failure.empty() ? number : own, {}};
}

} // namespace kelvane
