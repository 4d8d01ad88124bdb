#include "LocalDaemon/SettingsStore.h"

#include "Foundation/BinaryPropertyList.h"
#include "Foundation/PathComponents.h"
#include "LocalDaemon/DamagedFile.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <cerrno>

namespace kelvane {
namespace {

// Far above what the bounds of the settings allow.
constexpr std::size_t largestFile = std::size_t{4} << 20U;
constexpr mode_t privateMode = 0600;

SettingsStore::Loading insteadOfDamaged(const std::string& path, const std::string& reason) {
    if (!setAside(path, reason))
        KelvaneSystemLog("The next change of the settings takes its place.");
    return {};
}

} // namespace

SettingsStore::Loading SettingsStore::load() {
    const std::scoped_lock guard(mutex_);
    const FileReading file = readFile(path_, largestFile);
    if (file.error == ENOENT || file.error == ENOTDIR)
        return {};
    if (file.error == EFBIG)
        return insteadOfDamaged(path_, file.reason);
    if (!file.succeeded())
        return {{},
                "the settings cannot be read, and without them what you have excluded would be backed up: " +
                    file.reason};
    const PropertyListReading list = readBinaryPropertyList(file.bytes);
    if (!list.value.isDictionary())
        return insteadOfDamaged(path_, list.succeeded() ? "it holds no dictionary" : list.error);
    return {settingsFromValue(list.value), {}};
}

std::string SettingsStore::save(const Settings& settings, std::uint64_t version) {
    const PropertyListWriting list = writeBinaryPropertyList(valueFromSettings(settings));
    if (!list.succeeded())
        return list.error;
    const std::scoped_lock guard(mutex_);
    if (version < savedVersion_)
        return {}; // a later change was faster
    const std::string folder = deleteLastPathComponent(path_);
    if (!ensureFolder(folder))
        return "cannot make the folder " + folder;
    const FileOutcome outcome = replaceFileAtomically(path_, list.bytes, privateMode);
    if (outcome.succeeded())
        savedVersion_ = version;
    return outcome.reason;
}

} // namespace kelvane
