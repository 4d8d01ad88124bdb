#include "LocalDaemon/Restic/KnownRepositories.h"

#include "Foundation/Checksum.h"
#include "Foundation/CleanPath.h"
#include "Foundation/Format.h"
#include "LocalDaemon/Restic/Snapshots.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <set>
#include <span>

namespace kelvane {
namespace {

constexpr std::size_t largestFile = std::size_t{1} << 20U;
constexpr std::size_t checksumLength = 16;

std::string checksumText(const std::string& location) {
    return formatText("%016llx", checksumOf(location));
}

// Returns the checksums of the locations, with which the lines begin. Returns no value when the file is
// damaged.
std::optional<std::set<std::string, std::less<>>> placesIn(std::string_view text) {
    std::set<std::string, std::less<>> places;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        const bool isWhole = line.size() < text.size() && line.size() > checksumLength + 1 &&
                             line[checksumLength] == ' ' && isHexadecimal(line.substr(0, checksumLength)) &&
                             isHexadecimal(line.substr(checksumLength + 1));
        if (!isWhole)
            return std::nullopt;
        places.emplace(line.substr(0, checksumLength));
        text.remove_prefix(line.size() + 1);
    }
    return places;
}

std::string_view textOf(const FileReading& file) {
    return {reinterpret_cast<const char*>(file.bytes.data()), file.bytes.size()};
}

bool isMissing(const FileReading& file) {
    return file.error == ENOENT || file.error == ENOTDIR;
}

} // namespace

bool KnownRepositories::knows(const std::string& location) const {
    const FileReading file = readFile(path_, largestFile, SymbolicLinks::Follow);
    if (isMissing(file))
        return false;
    const auto places = file.succeeded() ? placesIn(textOf(file)) : std::nullopt;
    return !places || places->contains(checksumText(location));
}

void KnownRepositories::note(const std::string& location, const std::string& repositoryId) const {
    const FileReading file = readFile(path_, largestFile, SymbolicLinks::Follow);
    const auto places = placesIn(textOf(file));
    if (places && places->contains(checksumText(location)))
        return;
    std::string failure = file.succeeded() || isMissing(file) ? "" : file.reason;
    std::string text = places ? std::string(textOf(file)) : std::string();
    text += checksumText(location) + ' ' + repositoryId + '\n';
    if (failure.empty())
        failure = replacePrivateFile(path_, text).reason;
    if (!failure.empty())
        logError("Cannot record which repository this key opens: %@", failure);
}

} // namespace kelvane
