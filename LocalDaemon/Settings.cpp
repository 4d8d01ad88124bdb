#include "LocalDaemon/Settings.h"

#include <string_view>

namespace kelvane {
namespace {

struct Flag {
    std::string_view key;
    bool Settings::*member;
};

constexpr Flag flags[] = {
    {"automaticMode", &Settings::automaticMode}, {"enabled", &Settings::enabled},
    {"recoverMode", &Settings::recoverMode},     {"lowerPriorityMode", &Settings::lowerPriorityMode},
    {"delayShutdown", &Settings::delayShutdown}, {"includeRequired", &Settings::includeRequired},
};
constexpr std::string_view controlFlagsKey = "backupControlFlags";
constexpr std::string_view pausedUntilKey = "pausedUntil";
constexpr std::string_view profileKey = "profile";
constexpr std::string_view togglesKey = "fileTypeToggles";

constexpr std::size_t mostEntries = 100;
constexpr std::size_t longestKey = 256;
constexpr std::size_t longestText = 4096;

template <class IsRight>
Dictionary entriesOf(const Value& value, IsRight isRight) {
    Dictionary entries;
    for (const auto& [key, entry] : value.dictionary())
        if (isRight(entry))
            static_cast<void>(setEntry(entries, key, entry));
    return entries;
}

} // namespace

Value valueFromSettings(const Settings& settings) {
    Dictionary entries;
    for (const Flag& flag : flags)
        entries.set(flag.key, settings.*flag.member);
    entries.set(controlFlagsKey, settings.backupControlFlags);
    entries.set(pausedUntilKey, settings.pausedUntil);
    entries.set(profileKey, settings.profile);
    entries.set(togglesKey, settings.fileTypeToggles);
    return entries;
}

Settings settingsFromValue(const Value& value) {
    Settings settings;
    for (const Flag& flag : flags)
        if (value[flag.key].isNumber())
            settings.*flag.member = value[flag.key].boolValue();
    settings.backupControlFlags = value[controlFlagsKey].uint32Value();
    settings.pausedUntil = value[pausedUntilKey].int64Value();
    settings.profile = entriesOf(value[profileKey], [](const Value& entry) { return entry.isString(); });
    settings.fileTypeToggles =
        entriesOf(value[togglesKey], [](const Value& entry) { return entry.isNumber(); });
    return settings;
}

bool setEntry(Dictionary& entries, const std::string& key, const Value& value) {
    if (key.size() > longestKey || value.stringValue().size() > longestText)
        return false;
    if (!entries.contains(key) && entries.size() >= mostEntries)
        return false;
    entries.set(key, value);
    return true;
}

} // namespace kelvane
