#include "LocalDaemon/SettingsStore.h"

#include "Foundation/BinaryPropertyList.h"
#include "Foundation/Checksum.h"
#include "Foundation/PathComponents.h"
#include "LocalDaemon/DamagedFile.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <cerrno>
#include <unistd.h>

namespace kelvane {
namespace {

// Far above what the bounds of the settings allow.
constexpr std::size_t largestFile = std::size_t{4} << 20U;
constexpr mode_t privateMode = 0600;

constexpr std::string_view settingsKey = "settings"; // data: a property list of their own
constexpr std::string_view checksumKey = "checksum"; // of that data
constexpr const char* damageAlert = "settings_damaged";

struct StoredFile {
    enum class State { Missing, Whole, Damaged, Unreadable };
    State state;
    Settings settings;
    std::string reason; // of the last two
};

// Versions before the checksum have written the settings' own dictionary.
StoredFile storedFileIn(const Value& content) {
    if (!content.isDictionary())
        return {StoredFile::State::Damaged, {}, "it holds no dictionary"};
    if (content[settingsKey].isAbsent() && content[checksumKey].isAbsent())
        return {StoredFile::State::Whole, settingsFromValue(content), {}};
    const Data& data = content[settingsKey].dataValue();
    if (content[checksumKey].uint64Value() != checksumOf(data))
        return {StoredFile::State::Damaged, {}, "its checksum is wrong"};
    const PropertyListReading list = readBinaryPropertyList(data);
    if (!list.value.isDictionary())
        return {StoredFile::State::Damaged, {}, list.error};
    return {StoredFile::State::Whole, settingsFromValue(list.value), {}};
}

StoredFile readStoredFile(const std::string& path) {
    const FileReading file = readFile(path, largestFile);
    if (file.error == ENOENT || file.error == ENOTDIR)
        return {StoredFile::State::Missing, {}, {}};
    if (file.error == EFBIG)
        return {StoredFile::State::Damaged, {}, file.reason};
    if (!file.succeeded())
        return {StoredFile::State::Unreadable, {}, file.reason};
    const PropertyListReading list = readBinaryPropertyList(file.bytes);
    if (!list.succeeded())
        return {StoredFile::State::Damaged, {}, list.error};
    return storedFileIn(list.value);
}

// Returns why it failed, empty when it did not.
std::string replace(const std::string& path, const Settings& settings) {
    const PropertyListWriting own = writeBinaryPropertyList(valueFromSettings(settings));
    if (!own.succeeded())
        return own.error;
    const PropertyListWriting list = writeBinaryPropertyList(
        Dictionary{{std::string(settingsKey), own.bytes}, {std::string(checksumKey), checksumOf(own.bytes)}});
    const std::string folder = deleteLastPathComponent(path);
    if (!ensureFolder(folder))
        return "cannot make the folder " + folder;
    return replaceFileAtomically(path, list.bytes, privateMode).reason;
}

} // namespace

SettingsStore::Loading SettingsStore::load() {
    using State = StoredFile::State;
    const std::scoped_lock guard(mutex_);
    StoredFile file = readStoredFile(path_);
    if (file.state == State::Whole)
        return {std::move(file.settings), {}, {}};
    StoredFile copy = readStoredFile(copyPath_);
    if (file.state == State::Missing && copy.state == State::Missing)
        return {};
    const std::string reason = file.state == State::Missing ? "the file is gone" : file.reason;
    if (copy.state == State::Whole) {
        if (file.state == State::Damaged)
            static_cast<void>(setAside(path_, reason));
        return {std::move(copy.settings),
                {},
                Alert{damageAlert, "warning", "The settings were damaged; their copy is used.",
                      path_ + ": " + reason + ". Check what is excluded from the backup."}};
    }
    if (file.state == State::Unreadable || copy.state == State::Unreadable)
        return {{},
                "the settings cannot be read, and without them what you have excluded would be backed up: " +
                    (file.state == State::Unreadable ? file.reason : copy.reason),
                {}};
    return inRecoverMode(reason);
}

// The copy is written before the damaged file is moved: whenever this is interrupted, the next start finds
// damaged settings or recover mode, and never the defaults.
SettingsStore::Loading SettingsStore::inRecoverMode(const std::string& reason) const {
    Loading loading;
    loading.settings.recoverMode = true;
    std::string failure = replace(copyPath_, loading.settings);
    if (failure.empty() && ::access(path_.c_str(), F_OK) == 0)
        static_cast<void>(setAside(path_, reason));
    if (failure.empty())
        failure = replace(path_, loading.settings);
    if (!failure.empty())
        return {{}, "the settings are damaged (" + reason + ") and cannot be replaced: " + failure, {}};
    loading.alert =
        Alert{damageAlert, "error", "Nothing is backed up: your settings were lost.",
              path_ + ": " + reason +
                  ". Kelvane is in recover mode, so that nothing you had excluded is backed up. Set your "
                  "exclusions again, then leave recover mode."};
    return loading;
}

std::string SettingsStore::save(const Settings& settings, std::uint64_t version) {
    const std::scoped_lock guard(mutex_);
    if (version < savedVersion_)
        return {}; // a later change was faster
    std::string failure = replace(copyPath_, settings);
    if (failure.empty())
        failure = replace(path_, settings);
    if (failure.empty())
        savedVersion_ = version;
    return failure;
}

} // namespace kelvane
