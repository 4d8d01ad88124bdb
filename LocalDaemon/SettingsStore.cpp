#include "LocalDaemon/SettingsStore.h"

#include "Foundation/BinaryPropertyList.h"
#include "Foundation/PathComponents.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace kelvane {
namespace {

// Far above what the bounds of the settings allow.
constexpr std::size_t largestFile = std::size_t{4} << 20U;
constexpr mode_t privateMode = 0600;

} // namespace

Settings SettingsStore::load() {
    const std::scoped_lock guard(mutex_);
    const FileReading file = readFile(path_, largestFile);
    if (file.error == ENOENT)
        return {};
    if (!file.succeeded()) {
        setAside(file.reason);
        return {};
    }
    const PropertyListReading list = readBinaryPropertyList(file.bytes);
    if (!list.value.isDictionary()) {
        setAside(list.succeeded() ? "it holds no dictionary" : list.error);
        return {};
    }
    return settingsFromValue(list.value);
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

void SettingsStore::setAside(const std::string& reason) const {
    const std::string aside = path_ + ".damaged";
    if (std::rename(path_.c_str(), aside.c_str()) == 0)
        KelvaneSystemLog(
            "The settings in %@ cannot be read (%@). They are set aside as %@, and the defaults are used.",
            path_, reason, aside);
    else
        KelvaneSystemLog(
            "The settings in %@ can neither be read (%@) nor set aside (%@); the defaults are used.", path_,
            reason, std::generic_category().message(errno));
}

} // namespace kelvane
