#include "LocalDaemon/ComputerNumber.h"

#include "LocalDaemon/CleanPath.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <optional>
#include <span>
#include <string_view>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr const char* machineIdentityFile = "/etc/machine-id";
constexpr std::size_t largestIdentity = 4096;
constexpr std::size_t largestNumber = 16; // bytes of its text
constexpr std::uint32_t highest = 0x7FFFFFFFU;
constexpr mode_t mode = 0600;

std::string machineIdentity() {
    const FileReading file = readFile(machineIdentityFile, largestIdentity, SymbolicLinks::Follow);
    if (!file.bytes.empty())
        return {file.bytes.begin(), file.bytes.end()};
    std::array<char, 256> hostName{};
    ::gethostname(hostName.data(), hostName.size() - 1);
    return hostName.data();
}

// FNV-1a.
std::uint32_t numberFrom(const std::string& text) {
    std::uint32_t hash = 2166136261U;
    for (const char byte : text)
        hash = (hash ^ static_cast<unsigned char>(byte)) * 16777619U;
    return std::max(hash & highest, 1U);
}

std::optional<std::uint32_t> numberIn(const std::string& path) {
    const Data text = readFile(path, largestNumber, SymbolicLinks::Follow).bytes;
    const auto* const begin = reinterpret_cast<const char*>(text.data());
    std::uint32_t number = 0;
    std::from_chars(begin, begin + text.size(), number);
    return number >= 1 && number <= highest ? std::optional(number) : std::nullopt;
}

bool hasIndex(const std::string& indexPath) {
    std::error_code error;
    const std::filesystem::directory_iterator files(std::string(folderOf(indexPath)), error);
    return std::any_of(begin(files), end(files),
                       [&](const auto& file) { return file.path().string().starts_with(indexPath); });
}

std::string keep(std::uint32_t number, const std::string& path) {
    const std::string text = std::to_string(number) + '\n';
    if (!ensureFolder(std::string(folderOf(path))))
        return "its folder cannot be made";
    const std::span bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    return replaceFileAtomically(path, bytes, mode).reason;
}

} // namespace

std::uint32_t computerNumber(const std::string& path, const std::string& indexPath) {
    if (const auto kept = numberIn(path))
        return *kept;
    std::string identity = "kelvane computer number " + machineIdentity();
    if (!hasIndex(indexPath))
        identity += indexPath + '\n' + std::to_string(::geteuid());
    const std::uint32_t number = numberFrom(identity);
    if (const std::string failure = keep(number, path); !failure.empty())
        KelvaneSystemLog("The number of this computer, %u, cannot be kept in %@ (%@): name it in the "
                         "configuration.",
                         number, path, failure);
    return number;
}

} // namespace kelvane
