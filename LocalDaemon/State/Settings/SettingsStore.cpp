#include "LocalDaemon/State/Settings/SettingsStore.h"

#include "Support/Preferences/CheckedFile.h"
#include "Support/Preferences/DamagedFile.h"

#include <unistd.h>

namespace kelvane {
namespace {

// Far above the limits of the settings.
constexpr std::size_t largestFile = std::size_t{64} << 20U;
constexpr std::string_view settingsKey = "settings";
constexpr const char* damageAlert = "settings_damaged";

CheckedReading readStoredFile(const std::string& path) {
    return readCheckedFile(path, settingsKey, largestFile);
}

std::string replace(const std::string& path, const Settings& settings) {
    return replaceCheckedFile(path, settingsKey, valueFromSettings(settings), largestFile);
}

} // namespace

SettingsStore::Loading SettingsStore::load() {
    using State = CheckedReading::State;
    const std::scoped_lock guard(mutex_);
    const CheckedReading file = readStoredFile(path_);
    if (file.state == State::Whole)
        return {settingsFromValue(file.value), {}, {}};
    const CheckedReading copy = readStoredFile(copyPath_);
    if (file.state == State::Missing && copy.state == State::Missing)
        return {};
    const std::string reason = file.state == State::Missing ? "the file is missing" : file.reason;
    if (copy.state == State::Whole) {
        if (file.state == State::Damaged)
            static_cast<void>(setAside(path_, reason));
        return {settingsFromValue(copy.value),
                {},
                Alert{.kind = damageAlert,
                      .severity = "warning",
                      .title = "The settings were damaged; their copy is used.",
                      .body = path_ + ": " + reason + ". Check what is excluded from the backup."}};
    }
    if (file.state == State::Unreadable || copy.state == State::Unreadable)
        return {{},
                "cannot read the settings: " + (file.state == State::Unreadable ? file.reason : copy.reason) +
                    ". The daemon does not start, because it would back up what you have excluded",
                {}};
    return inRecoverMode(reason);
}

// The copy is written before the damaged file is renamed: after an interruption at any point, the next
// start finds damaged settings or recover mode, and never the defaults.
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
        Alert{.kind = damageAlert,
              .severity = "error",
              .title = "Nothing is backed up: your settings were lost.",
              .body = path_ + ": " + reason +
                      ". Kelvane is in recover mode, so that nothing you had excluded is backed up. Set your "
                      "exclusions again, then leave recover mode."};
    return loading;
}

std::string SettingsStore::save(const Settings& settings, std::uint64_t version) {
    const std::scoped_lock guard(mutex_);
    if (version < savedVersion_)
        return {}; // A later change has already been saved.
    std::string failure = replace(copyPath_, settings);
    if (failure.empty())
        failure = replace(path_, settings);
    if (failure.empty())
        savedVersion_ = version;
    return failure;
}

} // namespace kelvane
