#include "LocalDaemon/Configuration.h"

#include "Foundation/PathComponents.h"
#include "LocalDaemon/CleanPath.h"
#include "Platform/FileContents.h"
#include "Platform/PropertyListFile.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <span>
#include <system_error>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr const char* machineIdentityFile = "/etc/machine-id";
constexpr std::size_t largestIdentity = 4096;

constexpr const char* policyBelowHome[] = {".cache/", ".local/share/Trash/", ".thumbnails/",
                                           ".var/app/*/cache/"};
constexpr const char* policyOfMachine[] = {"/dev/", "/proc/",    "/run/",          "/sys/",
                                           "/tmp/", "/var/tmp/", "/*/lost+found/", "/*/.Trash-*"};
constexpr std::size_t keyBytes = 32;
constexpr mode_t privateMode = 0600;

std::string machineIdentity() {
    const FileReading file = readFile(machineIdentityFile, largestIdentity, SymbolicLinks::Follow);
    if (!file.bytes.empty())
        return {file.bytes.begin(), file.bytes.end()};
    std::array<char, 256> hostName{};
    ::gethostname(hostName.data(), hostName.size() - 1);
    return hostName.data();
}

// FNV-1a.
std::uint32_t hashOf(const std::string& text) {
    std::uint32_t hash = 2166136261U;
    for (const char byte : text)
        hash = (hash ^ static_cast<unsigned char>(byte)) * 16777619U;
    return hash;
}

// Mapped as a path is, which costs it its last separator.
std::string withItsEnd(const std::string& mapped, const std::string& pattern) {
    return pattern.ends_with('/') ? withSeparator(mapped) : mapped;
}

std::vector<std::string> defaultPolicy(const std::string& home) {
    std::vector<std::string> policy(std::begin(policyOfMachine), std::end(policyOfMachine));
    for (const char* pattern : policyBelowHome)
        policy.push_back(withSeparator(home) + pattern);
    return policy;
}

std::vector<std::string> policyFrom(const Value& patterns, const Volumes& volumes) {
    std::vector<std::string> policy;
    for (const Value& each : patterns.array()) {
        const std::string& pattern = each.stringValue();
        const auto real = volumes.realPath(pattern);
        if (real && isAbsolutePath(pattern) && (pattern.ends_with('/') || pattern.ends_with('*')))
            policy.push_back(withItsEnd(*real, pattern));
        else
            KelvaneSystemLog("A pattern of the policy is left out, for it is no absolute path in a volume of "
                             "this machine that ends in \"/\" or \"*\": %@",
                             each);
    }
    return policy;
}

// One that is there and cannot be read is logged.
PropertyListReading listIn(const std::string& path) {
    const FileReading file = readFile(path, largestPropertyListFile, SymbolicLinks::Follow);
    PropertyListReading list;
    if (file.succeeded())
        list = readPropertyList(file.bytes);
    else if (file.error != ENOENT)
        list.error = file.reason;
    if (!list.succeeded())
        KelvaneSystemLog("The configuration in %@ is not used: %@", path, list.error);
    return list;
}

std::string withoutLinks(const std::string& path) {
    std::array<char, PATH_MAX> resolved{};
    return ::realpath(path.c_str(), resolved.data()) != nullptr ? std::string(resolved.data()) : path;
}

// The entries of the configuration, each taken if it makes sense.
class Entries {
public:
    Entries(const std::string& path, const Dictionary& settled) : file_(listIn(path)), settled_(settled) {}

    // Or there is none.
    [[nodiscard]] bool isReadable() const { return file_.succeeded(); }
    [[nodiscard]] const Value& operator[](std::string_view key) const {
        return settled_.contains(key) ? settled_[key] : file_.value[key];
    }
    void take(std::string_view key, std::string& text) const {
        takeIf(key, (*this)[key].isString(), [&](const Value& entry) { text = entry.stringValue(); });
    }
    void takePath(std::string_view key, std::string& path) const {
        takeIf(key, isAbsolutePath((*this)[key].stringValue()),
               [&](const Value& entry) { path = entry.stringValue(); });
    }
    void take(std::string_view key, std::uint32_t least, std::uint32_t most, auto&& set) const {
        const std::uint64_t number = (*this)[key].uint64Value();
        takeIf(key, (*this)[key].isNumber() && number >= least && number <= most,
               [&](const Value&) { set(static_cast<std::uint32_t>(number)); });
    }

private:
    void takeIf(std::string_view key, bool makesSense, auto&& set) const {
        if (makesSense)
            set((*this)[key]);
        else if (!(*this)[key].isAbsent())
            KelvaneSystemLog("The configuration's %@ makes no sense and is not used: %@", key, (*this)[key]);
    }

    const PropertyListReading file_;
    const Dictionary& settled_;
};

// A wrong one must not send the backup to another place than the one that was meant.
void takeLocation(const Value& location, std::string& taken) {
    if (location.isAbsent())
        return;
    taken = location.stringValue();
    if (isAbsolutePath(taken) || taken.find(':') != std::string::npos)
        return;
    taken.clear();
    KelvaneSystemLog("The configuration's repository is neither an absolute path nor a place that restic "
                     "knows.");
}

std::string localFolderOf(const std::string& location) {
    constexpr std::string_view local = "local:";
    const std::string path = location.starts_with(local) ? location.substr(local.size()) : location;
    return isAbsolutePath(path) ? withoutLinks(path) : std::string();
}

RepositoryPlace placeFrom(const Entries& entries, RepositoryPlace place) {
    takeLocation(entries["repository"], place.location);
    if (!entries.isReadable())
        place.location.clear(); // it may have named another one
    entries.takePath("passwordFile", place.passwordFile);
    entries.takePath("resticProgram", place.program);
    for (const auto& [name, value] : entries["environment"].dictionary())
        place.environment[name] = value.stringValue();
    return place;
}

} // namespace

ConfigurationDefaults usualDefaults() {
    ConfigurationDefaults defaults;
    defaults.home = homeFolder();
    defaults.repository.location = dataFolder() + "/kelvane/repository";
    defaults.repository.passwordFile = configurationFolder() + "/kelvane/local-daemon.password";
    defaults.repository.cacheFolder = cacheFolder() + "/kelvane/restic";
    defaults.ownFiles = {defaults.repository.cacheFolder + '/'};
    return defaults;
}

Configuration readConfiguration(const std::string& path, const ConfigurationDefaults& defaults,
                                const Volumes& volumes, const Dictionary& settled) {
    const Entries entries(path, settled);
    Configuration configuration;
    configuration.home = defaults.home;
    entries.takePath("homeFolder", configuration.home);
    configuration.home = withoutLinks(configuration.home);
    for (const Value& folder : entries["volumes"].array())
        if (const auto real = volumes.realPath(folder.stringValue()); real && isAbsolutePath(*real))
            configuration.volumes.push_back(withoutLinks(*real));
    entries.take("serverURL", configuration.serverURL);
    entries.take("userEmail", configuration.userEmail);
    constexpr std::uint32_t highest = 0x7FFFFFFFU;
    constexpr std::uint32_t minutesOfAYear = 525600;
    entries.take("quotaMB", 0, highest, [&](std::uint32_t number) { configuration.quotaMB = number; });
    entries.take("intervalMinutes", 1, minutesOfAYear,
                 [&](std::uint32_t number) { configuration.interval = std::chrono::minutes(number); });
    entries.take("keepDays", 1, highest / 2,
                 [&](std::uint32_t number) { configuration.keep = std::chrono::days(number); });
    configuration.computerNumber = numberOfThisComputer();
    entries.take("computerNumber", 1, highest,
                 [&](std::uint32_t number) { configuration.computerNumber = number; });
    configuration.repository = placeFrom(entries, defaults.repository);
    const Value& patterns = entries["policyExcludeList"];
    configuration.policy =
        patterns.isArray() ? policyFrom(patterns, volumes) : defaultPolicy(configuration.home);
    configuration.policy.insert(configuration.policy.end(), defaults.ownFiles.begin(),
                                defaults.ownFiles.end());
    if (const std::string folder = localFolderOf(configuration.repository.location); !folder.empty())
        configuration.policy.push_back(withSeparator(folder));
    return configuration;
}

std::string volumePattern(const std::string& pattern, const Volumes& volumes) {
    return withItsEnd(volumes.volumePath(pattern), pattern);
}

std::uint32_t numberOfThisComputer() {
    const std::uint32_t number = hashOf("kelvane computer number " + machineIdentity()) & 0x7FFFFFFFU;
    return number == 0 ? 1 : number;
}

std::string ensurePasswordFile(const std::string& path, bool& isNew) {
    isNew = false;
    if (::access(path.c_str(), F_OK) == 0)
        return {};
    std::array<std::uint8_t, keyBytes> key{};
    if (::getentropy(key.data(), key.size()) != 0)
        return std::generic_category().message(errno);
    std::string text;
    for (const std::uint8_t byte : key)
        text += formatText("%02x", byte);
    text += '\n';
    const std::span bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    if (!ensureFolder(std::string(folderOf(path))))
        return "cannot make the folder of " + path;
    const FileOutcome written = replaceFileAtomically(path, bytes, privateMode);
    isNew = written.succeeded();
    return written.reason;
}

} // namespace kelvane
