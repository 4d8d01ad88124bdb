#include "FakeDaemon/DaemonWorld.h"

#include "Common/ExtensionProtocol.h"
#include "Common/FileNode/FileNodeFlags.h"
#include "Common/RestoreStatus.h"
#include "Common/StateKeys.h"
#include "Platform/Files/FileSystem.h"

#include <algorithm>
#include <ctime>
#include <span>

namespace kelvane {
namespace {

constexpr std::uint32_t checkedAndEnabled = Backup_Simple_Checked | Backup_Simple_Enabled;

enum class Store { State, Values };
enum class Type { Number, Bool };

// A method that reads or writes a single entry. A getter that is missing here reads the entry with its
// own name.
struct Property {
    std::string_view getter;
    std::string_view setter;
    Store store;
    std::string_view key;
    Type type;
};
constexpr Property properties[] = {
    {"serviceState", "setServiceState:", Store::State, statekey::serviceState, Type::Number},
    {"lowerPriorityMode", "setLowerPriorityMode:", Store::State, statekey::lowerPriorityMode, Type::Bool},
    {"recoverMode", "setRecoverMode:", Store::State, statekey::recoverMode, Type::Bool},
    {"getCurrentRestoreJob", "", Store::State, statekey::currentRestoreJob, Type::Number},
    {"", "setBackupControl:", Store::State, statekey::backupControlFlags, Type::Number},
    {"", "setAccountOverQuotaTestingFlag:", Store::State, statekey::isOverQuota, Type::Bool},
    {"automaticMode", "setAutomaticMode:", Store::Values, "automaticMode", Type::Bool},
    {"delayShutdown", "setDelayShutdown:", Store::Values, "delayShutdown", Type::Bool},
    {"", "setIncludeRequired:", Store::Values, "includeRequired", Type::Bool},
    {"", "setEnabled:", Store::Values, "enabled", Type::Bool},
};

void set(Value& dictionary, std::string_view key, Value value) {
    dictionary.mutableDictionary().set(key, std::move(value));
}

std::uint32_t flags(const Value& node) {
    return node["backupFlags"].uint32Value();
}

bool isBelow(const std::string& path, const std::string& folder) {
    return folder == "/" ? path.size() > 1 && !path.starts_with("/Volumes/")
                         : path.size() > folder.size() && path.starts_with(folder + "/");
}

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

Value startRestoreJob(DaemonWorld& world) {
    const auto job = static_cast<std::uint32_t>(world.restoreJobs.size() + 1);
    set(world.restoreJobs, std::to_string(job), restorestatus::running);
    set(world.state, statekey::currentRestoreJob, job);
    return job;
}

// Only the extension "schedule" has the end of a pause.
void noteEndOfPause(DaemonWorld& world, std::uint32_t minutes) {
    const Array& extensions = world.state[statekey::extensions].array();
    if (std::find(extensions.begin(), extensions.end(), Value(extension::schedule)) == extensions.end())
        return;
    Dictionary& state = world.state.mutableDictionary();
    if (minutes == 0)
        state.erase(statekey::pausedUntil);
    else
        state.set(statekey::pausedUntil, dateFromTime(std::time(nullptr) + std::int64_t{60} * minutes));
}

// A method that affects more than one entry.
struct Method {
    std::string_view selector;
    Value (*handle)(DaemonWorld&, const Array&);
};
constexpr Method methods[] = {
    {"daemonState", [](DaemonWorld& world, const Array&) { return world.state; }},
    {"setPausedMinutes:",
     [](DaemonWorld& world, const Array& arguments) {
         set(world.values, "pausedMinutes", arguments[0]);
         set(world.state, statekey::paused, arguments[0].uint32Value() != 0);
         noteEndOfPause(world, arguments[0].uint32Value());
         return Value();
     }},
    {"clearAccountOverQuotaTestingFlag",
     [](DaemonWorld& world, const Array&) {
         set(world.state, statekey::isOverQuota, false);
         return Value();
     }},
    {"mappedUserAsString:", [](DaemonWorld&, const Array& arguments) { return arguments[0]; }},
    {"stringValueForProfileKey:",
     [](DaemonWorld& world, const Array& arguments) { return world.profile[arguments[0].stringValue()]; }},
    {"setValueForProfileKey:withString:",
     [](DaemonWorld& world, const Array& arguments) {
         set(world.profile, arguments[0].stringValue(), arguments[1]);
         return Value();
     }},
    {"getFileTypeToggle:",
     [](DaemonWorld& world, const Array& arguments) { return world.fileTypes[arguments[0].stringValue()]; }},
    {"setFileTypeToggle:toggle:",
     [](DaemonWorld& world, const Array& arguments) {
         set(world.fileTypes, arguments[0].stringValue(), arguments[1]);
         return Value();
     }},
    {"backupColorsForFiles:",
     [](DaemonWorld& world, const Array& arguments) {
         Array colors;
         for (const Value& path : arguments[0].array()) {
             const Value* node = world.file(path.stringValue());
             colors.emplace_back(node ? (*node)["backupColor"].int32Value() : Backup_Color_None);
         }
         return Value(std::move(colors));
     }},
    {"restoreWithChoices:",
     [](DaemonWorld& world, const Array&) { return Value(!startRestoreJob(world).isAbsent()); }},
    {"restoreFile:toPath:version:priority:",
     [](DaemonWorld& world, const Array&) { return startRestoreJob(world); }},
    {"getRestoreJobStatus:",
     [](DaemonWorld& world, const Array& arguments) {
         return world.restoreJobs[arguments[0].description()];
     }},
    {"cancelAllRestoreJobs",
     [](DaemonWorld& world, const Array&) {
         world.restoreJobs = Dictionary();
         set(world.state, statekey::currentRestoreJob, 0U);
         return Value();
     }},
    {"setPriorityBackup:",
     [](DaemonWorld& world, const Array& arguments) {
         if (Value* node = world.file(arguments[0].stringValue()))
             set(*node, "backupFlags", (flags(*node) & ~Backup_Priority) | 1U);
         return Value();
     }},
    {"addFileToBackup:",
     [](DaemonWorld& world, const Array& arguments) {
         world.include(arguments[0].stringValue(), true);
         return Value();
     }},
    {"addFilesToBackup:",
     [](DaemonWorld& world, const Array& arguments) {
         for (const Value& path : arguments[0].array())
             world.include(path.stringValue(), true);
         return Value();
     }},
    {"removeFileFromBackup:",
     [](DaemonWorld& world, const Array& arguments) {
         world.include(arguments[0].stringValue(), false);
         return Value();
     }},
    // An unknown file cannot be excluded.
    {"excludeFileFromBackup:",
     [](DaemonWorld& world, const Array& arguments) {
         world.exclude(arguments[0].stringValue(), true);
         return Value(world.file(arguments[0].stringValue()) ? 0U : 1U);
     }},
    {"unexcludeFileFromBackup:",
     [](DaemonWorld& world, const Array& arguments) {
         world.exclude(arguments[0].stringValue(), false);
         return Value(world.file(arguments[0].stringValue()) ? 0U : 1U);
     }},
    {"dismissAlert:",
     [](DaemonWorld& world, const Array& arguments) {
         Array alerts = world.state[statekey::alerts].array();
         const std::size_t count = std::erase_if(alerts, [&](const Value& alert) {
             return alert["id"].stringValue() == arguments[0].stringValue();
         });
         set(world.state, statekey::alerts, alerts);
         return Value(count > 0 ? "" : "There is no such alert.");
     }},
    {"excludedFiles:", [](DaemonWorld& world, const Array&) { return world.excludedFiles(); }},
    {"childrenDictionariesForPath:",
     [](DaemonWorld& world, const Array& arguments) { return world.children(arguments[0].stringValue()); }},
    {"dictionaryForPath:",
     [](DaemonWorld& world, const Array& arguments) {
         const Value* node = world.file(arguments[0].stringValue());
         return node ? *node : Value();
     }},
    {"dictionaryForPath:withDirSizes:",
     [](DaemonWorld& world, const Array& arguments) {
         const Value* node = world.file(arguments[0].stringValue());
         if (!node)
             return Value();
         return arguments[1].boolValue() ? world.withFolderSizes(*node) : *node;
     }},
};

} // namespace

void DaemonWorld::addFile(const std::string& path, bool isDirectory, std::uint64_t size, bool isBackedUp) {
    const std::uint32_t kind = isDirectory ? Backup_Folder : 0;
    Dictionary node{
        {"fileName", path == "/" || parentOf(path) == "/Volumes" ? path : path.substr(path.rfind('/') + 1)},
        {"isDirectory", isDirectory},
        {"path", path},
        {"size", size},
        {"backupFlags", kind | (isBackedUp ? Backup_Backup | Backup_BackedUp : 0)},
        {"simpleFlags", isBackedUp ? checkedAndEnabled : checkedAndEnabled & ~Backup_Simple_Checked},
        {"backupColor", isBackedUp ? Backup_Color_Green : Backup_Color_None},
        {"totalCount", 1U},
        {"uid", 1000U},
        {"gid", 1000U}};
    if (isBackedUp) {
        node.set("backupDate", Date{757479845}); // 2 January 2025
        node.set("version", 1U);
    }
    files.emplace_back(std::move(node));
}

Value DaemonWorld::handle(std::string_view selector, const Array& arguments) {
    for (const Method& method : methods)
        if (method.selector == selector)
            return method.handle(*this, arguments);
    for (const Property& property : properties) {
        Value& store = property.store == Store::State ? state : values;
        if (property.setter == selector)
            set(store, property.key,
                property.type == Type::Bool ? Value(arguments[0].boolValue()) : arguments[0]);
        else if (property.getter == selector)
            return store[property.key];
    }
    if (selector.ends_with("ForState:"))
        return progress[arguments[0].description()];
    return values[selector];
}

Value* DaemonWorld::file(const std::string& path) {
    const std::string own = ownPath(path);
    const auto found = std::find_if(files.begin(), files.end(),
                                    [&](const Value& node) { return node["path"].stringValue() == own; });
    return found == files.end() ? nullptr : &*found;
}

Value DaemonWorld::children(const std::string& path) const {
    const std::string folder = ownPath(path);
    Array nodes;
    for (const Value& node : files) {
        const std::string& own = node["path"].stringValue();
        const bool isVolume = std::find(volumes.begin(), volumes.end(), own) != volumes.end();
        if (isVolume ? path.empty() : parentOf(own) == folder)
            nodes.push_back(node);
    }
    return nodes;
}

Value DaemonWorld::withFolderSizes(Value node) const {
    std::uint64_t size = node["size"].uint64Value();
    std::uint32_t count = node["totalCount"].uint32Value();
    for (const Value& other : files)
        if (isBelow(other["path"].stringValue(), node["path"].stringValue())) {
            size += other["size"].uint64Value();
            count += other["totalCount"].uint32Value();
        }
    set(node, "size", size);
    set(node, "totalCount", count);
    return node;
}

void DaemonWorld::include(const std::string& path, bool isIncluded) {
    const std::string own = ownPath(path);
    for (Value& node : files) {
        if (node["path"].stringValue() != own && !isBelow(node["path"].stringValue(), own))
            continue;
        const bool isBackedUp = (flags(node) & Backup_BackedUp) != 0;
        set(node, "backupFlags", isIncluded ? flags(node) | Backup_Backup : flags(node) & ~Backup_Backup);
        set(node, "simpleFlags", isIncluded ? checkedAndEnabled : checkedAndEnabled & ~Backup_Simple_Checked);
        set(node, "backupColor",
            !isIncluded  ? Backup_Color_None
            : isBackedUp ? Backup_Color_Green
                         : Backup_Color_Yellow);
    }
}

void DaemonWorld::exclude(const std::string& path, bool isExcluded) {
    if (Value* node = file(path)) {
        set(*node, "backupFlags",
            isExcluded ? flags(*node) | Backup_Exclude : flags(*node) & ~Backup_Exclude);
        include(path, !isExcluded);
    }
}

Value DaemonWorld::excludedFiles() const {
    Array nodes;
    std::copy_if(files.begin(), files.end(), std::back_inserter(nodes),
                 [](const Value& node) { return (flags(node) & Backup_Exclude) != 0; });
    return nodes;
}

std::string DaemonWorld::ownPath(const std::string& path) const {
    const std::string prefix = "/Volumes/" + bootVolume;
    if (path == prefix || path.empty())
        return path.empty() ? path : "/";
    return path.starts_with(prefix + "/") ? path.substr(prefix.size()) : path;
}

} // namespace kelvane
