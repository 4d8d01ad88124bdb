#include "LocalDaemon/State/Settings/Configuration.h"

#include "Foundation/CleanPath.h"
#include "Foundation/PathComponents.h"
#include "Platform/FileContents.h"
#include "Platform/PropertyListFile.h"
#include "Platform/SpecialFolders.h"
#include "Platform/SymbolicLinks.h"
#include "Support/Logging.h"

#include <cerrno>
#include <functional>
#include <sys/stat.h>
#include <utility>

namespace kelvane {
namespace {

constexpr const char* policyBelowHome[] = {".cache/", ".local/share/Trash/", ".thumbnails/",
                                           ".var/app/*/cache/", ".snapshots/"};
constexpr const char* policyOfMachine[] = {"/dev/",     "/proc/",      "/run/",        "/sys/",
                                           "/tmp/",     "/var/tmp/",   "/lost+found/", "/**/lost+found/",
                                           "/.Trash-*", "/**/.Trash-*"};

// Mapping a pattern like a path removes its trailing separator, which this appends again.
std::string withItsEnd(const std::string& mapped, const std::string& pattern) {
    return pattern.ends_with('/') ? withSeparator(mapped) : mapped;
}

std::vector<std::string> defaultPolicy(const std::string& home) {
    std::vector<std::string> policy(std::begin(policyOfMachine), std::end(policyOfMachine));
    for (const char* pattern : policyBelowHome)
        policy.push_back(withSeparator(home) + pattern);
    return policy;
}

// A link to a disk that is not mounted yet counts as an unreadable file, not as a missing one.
bool isNoFile(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) != 0 && errno == ENOENT;
}

// An existing file that cannot be read is logged.
PropertyListReading listIn(const std::string& path) {
    const FileReading file = readFile(path, largestPropertyListFile, SymbolicLinks::Follow);
    PropertyListReading list;
    if (file.succeeded())
        list = readPropertyList(file.bytes);
    else if (!isNoFile(path))
        list.error = file.reason;
    if (!list.succeeded())
        logError("The configuration in %@ is not used: %@", path, list.error);
    return list;
}

// The entries of the configuration. A valid entry is used, an invalid one is reported.
class Entries {
public:
    using Complain = std::function<void(std::string_view key, const std::string& fault)>;

    Entries(PropertyListReading file, const Dictionary& overrides, Complain complain)
        : file_(std::move(file)), overrides_(overrides), complain_(std::move(complain)) {}

    // Also true when there is no file.
    [[nodiscard]] bool isReadable() const { return file_.succeeded(); }
    [[nodiscard]] const Value& operator[](std::string_view key) const {
        return overrides_.contains(key) ? overrides_[key] : file_.value[key];
    }
    void complain(std::string_view key, const std::string& fault) const { complain_(key, fault); }
    void take(std::string_view key, std::string& text) const {
        if (isRight(key, (*this)[key].isString(), "it is not a string"))
            text = (*this)[key].stringValue();
    }
    void takePath(std::string_view key, std::string& path) const {
        if (isRight(key, isAbsolutePath((*this)[key].stringValue()), "it is not an absolute path"))
            path = (*this)[key].stringValue();
    }
    void take(std::string_view key, std::uint32_t least, std::uint32_t most, auto&& set) const {
        const std::uint64_t number = (*this)[key].uint64Value();
        if (isRight(key, (*this)[key].isNumber() && number >= least && number <= most,
                    formatText("it is not a number from %u to %u", least, most)))
            set(static_cast<std::uint32_t>(number));
    }
    [[nodiscard]] bool has(std::string_view key, bool (Value::*isKind)() const) const {
        return isRight(key, ((*this)[key].*isKind)(), "it has the wrong type");
    }

private:
    [[nodiscard]] bool isRight(std::string_view key, bool makesSense, const std::string& fault) const {
        if (!makesSense && !(*this)[key].isAbsent())
            // Logged without the value, since a number that was too large has been truncated.
            complain_(key, fault);
        return makesSense;
    }

    const PropertyListReading file_;
    const Dictionary& overrides_;
    const Complain complain_;
};

std::vector<std::string> volumesFrom(const Entries& entries, const Volumes& volumes) {
    std::vector<std::string> folders;
    for (const Value& folder : entries["volumes"].array()) {
        if (const auto real = volumes.realPath(folder.stringValue()); real && isAbsolutePath(*real))
            folders.push_back(withoutLinks(*real));
        else
            entries.complain("volumes", formatText("%@ is not an absolute path on this machine", folder));
    }
    return folders;
}

std::vector<std::string> policyFrom(const Entries& entries, const Volumes& volumes) {
    std::vector<std::string> policy;
    for (const Value& each : entries["policyExcludeList"].array()) {
        const std::string& pattern = each.stringValue();
        const auto real = volumes.realPath(pattern);
        if (real && isAbsolutePath(pattern) && (pattern.ends_with('/') || pattern.ends_with('*')))
            policy.push_back(withItsEnd(*real, pattern));
        else
            entries.complain("policyExcludeList",
                             formatText("%@ is not an absolute path in a volume of this machine that ends in "
                                        "\"/\" or \"*\"",
                                        each));
    }
    return policy;
}

// An invalid location must not direct the backup to a different one than was meant.
void takeLocation(const Entries& entries, std::string& location) {
    if (entries["repository"].isAbsent())
        return;
    location = entries["repository"].stringValue();
    const std::string path = withoutScheme(location);
    if (isAbsolutePath(path) || (path == location && path.find(':') != std::string::npos))
        return;
    location.clear();
    entries.complain("repository", "it is neither an absolute path nor a location that restic supports");
}

RepositoryPlace placeFrom(const Entries& entries, RepositoryPlace place) {
    takeLocation(entries, place.location);
    if (!entries.isReadable())
        place.location.clear(); // The unreadable file may have named another location.
    entries.takePath("passwordFile", place.passwordFile);
    entries.takePath("resticProgram", place.program);
    if (!entries.has("environment", &Value::isDictionary))
        return place;
    for (const auto& [name, value] : entries["environment"].dictionary()) {
        if (value.isString())
            place.environment[name] = value.stringValue();
        else
            entries.complain("environment", name + " is not a string");
    }
    return place;
}

Configuration configurationFrom(const Entries& entries, const ConfigurationDefaults& defaults,
                                const Volumes& volumes) {
    Configuration configuration;
    configuration.home = defaults.home;
    entries.takePath("homeFolder", configuration.home);
    configuration.home = withoutLinks(configuration.home);
    if (entries.has("volumes", &Value::isArray))
        configuration.volumes = volumesFrom(entries, volumes);
    entries.take("serverURL", configuration.serverURL);
    entries.take("userEmail", configuration.userEmail);
    constexpr std::uint32_t highest = 0x7FFFFFFFU;
    constexpr std::uint32_t minutesOfAYear = 525600;
    entries.take("quotaMB", 0, highest, [&](std::uint32_t number) { configuration.quotaMB = number; });
    entries.take("intervalMinutes", 1, minutesOfAYear,
                 [&](std::uint32_t number) { configuration.interval = std::chrono::minutes(number); });
    entries.take("keepDays", 1, highest / 2,
                 [&](std::uint32_t number) { configuration.keep = std::chrono::days(number); });
    configuration.computerNumber = defaults.computerNumber;
    entries.take("computerNumber", 1, highest,
                 [&](std::uint32_t number) { configuration.computerNumber = number; });
    configuration.repository = placeFrom(entries, defaults.repository);
    configuration.policy = entries.has("policyExcludeList", &Value::isArray)
                               ? policyFrom(entries, volumes)
                               : defaultPolicy(configuration.home);
    for (const std::string& path : defaults.ownFiles) // As the scan of the home folder encounters them.
        configuration.ownFiles.insert(withoutLinks(path));
    if (const std::string folder = localFolderOf(configuration.repository.location); !folder.empty())
        configuration.ownFiles.insert(folder);
    return configuration;
}

} // namespace

ConfigurationDefaults usualDefaults() {
    ConfigurationDefaults defaults;
    defaults.home = homeFolder();
    defaults.repository.location = dataFolder() + "/kelvane/repository";
    defaults.repository.passwordFile = configurationFolder() + "/kelvane/local-daemon.password";
    defaults.repository.cacheFolder = cacheFolder() + "/kelvane/restic";
    defaults.ownFiles = {defaults.repository.cacheFolder};
    return defaults;
}

Configuration readConfiguration(const std::string& path, const ConfigurationDefaults& defaults,
                                const Volumes& volumes, const Dictionary& overrides) {
    const auto log = [](std::string_view key, const std::string& fault) {
        logError("The configuration's %@ is not used: %@", key, fault);
    };
    return configurationFrom(Entries(listIn(path), overrides, log), defaults, volumes);
}

std::string faultIn(const Dictionary& entries, const Volumes& volumes) {
    std::string first;
    const auto keep = [&first](std::string_view, const std::string& fault) {
        first = first.empty() ? fault : first;
    };
    static_cast<void>(configurationFrom(Entries({}, entries, keep), {}, volumes));
    return first;
}

std::string volumePattern(const std::string& pattern, const Volumes& volumes) {
    return withItsEnd(volumes.volumePath(pattern), pattern);
}

} // namespace kelvane
