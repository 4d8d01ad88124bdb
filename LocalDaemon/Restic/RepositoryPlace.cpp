#include "LocalDaemon/Restic/RepositoryPlace.h"

#include "Foundation/CleanPath.h"
#include "Foundation/Format.h"
#include "Foundation/PathComponents.h"
#include "Platform/FileContents.h"
#include "Platform/MountTable.h"
#include "Platform/SpecialFolders.h"
#include "Platform/SymbolicLinks.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <span>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr std::size_t keyBytes = 32;

} // namespace

std::string withoutScheme(const std::string& location) {
    constexpr std::string_view local = "local:";
    return location.starts_with(local) ? location.substr(local.size()) : location;
}

std::string localFolderOf(const std::string& location) {
    const std::string path = withoutScheme(location);
    if (!isAbsolutePath(path))
        return {};
    const std::string folder = appendPathComponent(path, {});
    return silentMountAround(folder).empty() ? withoutLinks(folder) : folder;
}

std::string ensurePasswordFile(const std::string& path, bool& isNew) {
    isNew = false;
    if (::access(path.c_str(), F_OK) == 0)
        return {};
    std::array<std::uint8_t, keyBytes> key{};
    if (::getentropy(key.data(), key.size()) != 0)
        return errorText();
    std::string text;
    for (const std::uint8_t byte : key)
        text += formatText("%02x", byte);
    text += '\n';
    const FileOutcome written = replacePrivateFile(path, text);
    isNew = written.succeeded();
    return written.reason;
}

} // namespace kelvane
