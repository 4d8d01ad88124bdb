#include "Platform/Bundle.h"

#include "Platform/PropertyListFile.h"

#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr std::string_view stringTableType = ".strings";

bool isRegularFile(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

} // namespace

Bundle::Bundle(std::string path, const Dictionary& overrides) : path_(std::move(path)) {
    information_ = readDictionary(path_ + "/Info.plist");
    for (const auto& [key, value] : overrides)
        information_.mutableDictionary().set(key, value);
    readStringTables();
}

Bundle::Bundle(Value information) : information_(std::move(information)) {}

std::string Bundle::localizedString(std::string_view key, std::string_view fallback,
                                    std::string_view table) const {
    const auto found = stringTables_.find(table);
    if (key.empty() || found == stringTables_.end())
        return std::string(fallback);
    const Value& text = found->second[key];
    return text.isString() ? text.stringValue() : std::string(fallback);
}

std::optional<std::string> Bundle::resourcePath(std::string_view name, std::string_view type) const {
    std::string path = path_ + "/Resources/" + std::string(name);
    if (!type.empty())
        path.append(".").append(type);
    if (path_.empty() || !isRegularFile(path))
        return std::nullopt;
    return path;
}

std::optional<std::string> Bundle::plugInPath() const {
    const std::string name = information("CFBundleExecutable").stringValue();
    std::string path = path_ + "/PlugIns/" + name + ".so";
    if (path_.empty() || name.empty() || name.find('/') != std::string::npos || !isRegularFile(path))
        return std::nullopt;
    return path;
}

std::optional<std::string> Bundle::auxiliaryExecutable(std::string_view name) const {
    std::string path = path_ + "/Helpers/" + std::string(name);
    if (path_.empty() || !isRegularFile(path) || ::access(path.c_str(), X_OK) != 0)
        return std::nullopt;
    return path;
}

Value Bundle::readDictionary(const std::string& file) {
    PropertyListReading reading = readPropertyListFile(file);
    if (reading.succeeded() && !reading.value.isDictionary())
        reading.error = "cannot read " + file + ": not a dictionary";
    if (reading.succeeded())
        return std::move(reading.value);
    error_ += (error_.empty() ? "" : "\n") + reading.error;
    return Dictionary();
}

void Bundle::readStringTables() {
    std::error_code error; // a bundle without string tables is valid
    std::filesystem::directory_iterator file(path_ + "/Resources/en.lproj", error);
    for (; !error && file != std::filesystem::directory_iterator(); file.increment(error)) {
        if (file->path().extension() == stringTableType)
            stringTables_[file->path().stem().string()] = readDictionary(file->path().string());
    }
}

} // namespace kelvane
