#include "Support/Preferences/DefaultsDB.h"

#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"
#include "Support/Preferences/PreferencesFile.h"

#include <algorithm>
#include <limits>

namespace kelvane {
namespace {

constexpr std::string_view fileName = "/com.kelvane.preferences.plist";

struct Domain {
    std::string path;
    Dictionary entries;
    Dictionary unwritten; // settings that could not be written to the file
    bool isLoaded = false;
    bool lastReadOK = false;

    // Returns false when the file cannot be written; writing another key may then block for the same time.
    bool write(const std::string& key, const Value& value);
};

bool Domain::write(const std::string& key, const Value& value) {
    const PreferencesFile::Writing written = PreferencesFile(path).set(key, value, entries);
    if (written.error.empty()) {
        unwritten.erase(key);
        return true;
    }
    unwritten.set(key, value);
    KelvaneCLog("DefaultsDB: %@", written.error);
    return written.isValueAtFault;
}

void load(Domain& domain) {
    PreferencesFile::Reading reading = PreferencesFile(domain.path).read();
    if (!reading.error.empty()) {
        KelvaneCLog("DefaultsDB: %@", reading.error);
    } else {
        domain.entries = std::move(reading.entries);
        domain.unwritten = {}; // would overwrite newer settings of other processes
    }
    domain.isLoaded = true;
}

Domain& loadedDomain(bool synchronize) {
    static Domain domain;
    std::string path = configurationFolder().append(fileName);
    if (path != domain.path)
        domain = {.path = std::move(path),
                  .entries = {},
                  .unwritten = {},
                  .isLoaded = false,
                  .lastReadOK = domain.lastReadOK};
    if (synchronize || !domain.isLoaded)
        load(domain);
    return domain;
}

const Value& read(std::string_view key, bool synchronize) {
    Domain& domain = loadedDomain(synchronize);
    const Value& value = domain.entries[key];
    domain.lastReadOK = !value.isAbsent();
    return value;
}

void write(std::string_view key, const Value& value) {
    Domain& domain = loadedDomain(false);
    domain.unwritten.erase(key);
    const Dictionary waiting = domain.unwritten;
    if (domain.write(std::string(key), value)) {
        for (const auto& [item, wanted] : waiting)
            if (!domain.write(item, wanted))
                break;
    }
    for (const auto& [item, wanted] : domain.unwritten)
        domain.entries.set(item, wanted);
}

std::optional<std::string> textOf(const Value& value) {
    if (value.isString() || value.isNumber())
        return value.description();
    return std::nullopt;
}

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

std::int32_t leadingNumber(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
    const bool isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+'))
        text.remove_prefix(1);
    std::int64_t number = 0;
    for (; !text.empty() && isDigit(text.front()); text.remove_prefix(1))
        number = std::min<std::int64_t>(number * 10 + (text.front() - '0'), std::int64_t{1} << 31U);
    number = std::min<std::int64_t>(isNegative ? -number : number, std::numeric_limits<std::int32_t>::max());
    return static_cast<std::int32_t>(number);
}

std::int32_t numberOf(const Value& value) {
    return value.isString() ? leadingNumber(value.stringValue()) : value.int32Value();
}

bool isYes(const Value& value) {
    return value.isString() && value.stringValue() == "YES";
}

} // namespace

std::optional<std::string> DefaultsDB::stringProperty(std::string_view key, bool synchronize) {
    return textOf(read(key, synchronize));
}

std::string DefaultsDB::stringProperty(std::string_view key, bool synchronize,
                                       std::string_view withDefaultValue) {
    const Value& value = read(key, synchronize);
    return lastReadOK() ? textOf(value).value_or(std::string()) : std::string(withDefaultValue);
}

void DefaultsDB::setStringProperty(std::string_view value, std::string_view forItem) {
    write(forItem, value);
}

std::int32_t DefaultsDB::intProperty(std::string_view key, bool synchronize) {
    return numberOf(read(key, synchronize));
}

std::int32_t DefaultsDB::intProperty(std::string_view key, bool synchronize, std::int32_t withDefaultValue) {
    const Value& value = read(key, synchronize);
    return lastReadOK() ? numberOf(value) : withDefaultValue;
}

void DefaultsDB::setIntProperty(std::int32_t value, std::string_view forItem) {
    write(forItem, value);
}

bool DefaultsDB::boolProperty(std::string_view key, bool synchronize) {
    return isYes(read(key, synchronize));
}

bool DefaultsDB::boolProperty(std::string_view key, bool synchronize, bool withDefaultValue) {
    const Value& value = read(key, synchronize);
    return lastReadOK() ? isYes(value) : withDefaultValue;
}

void DefaultsDB::setBoolProperty(bool value, std::string_view forItem) {
    write(forItem, value ? "YES" : "NO");
}

bool DefaultsDB::lastReadOK() {
    return loadedDomain(false).lastReadOK;
}

std::string DefaultsDB::propertyChangedNotificationString() {
    return "com.kelvane.notify.defaultsPropertyChanged";
}

std::string DefaultsDB::propertyChangedSenderString() {
    return "com.kelvane.prefsPane";
}

} // namespace kelvane
