#include "Platform/Files/Volumes.h"

#include "Foundation/PathComponents.h"
#include "Foundation/Unicode.h"

#include <algorithm>
#include <span>
#include <unordered_map>
#include <unordered_set>

namespace kelvane {
namespace {

constexpr std::string_view volumesFolder = "/Volumes";
constexpr std::string_view bootFallback = "System";
constexpr std::string_view otherFallback = "Volume";

std::string cleanedName(std::string name, std::string_view fallback) {
    if (name.find_first_not_of("/ ") == std::string::npos || name == "." || name == "..")
        return std::string(fallback);
    // In a path as text, U+FFFD introduces a byte that is not UTF-8.
    for (std::size_t at = 0; (at = name.find("\uFFFD", at)) != std::string::npos;)
        name.replace(at, 3, "_");
    const bool isText = isUtf8(name);
    for (char& character : name) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '/' || byte < 0x20 || byte == 0x7F || (byte >= 0x80 && !isText))
            character = '_';
    }
    return name;
}

bool isInside(std::string_view path, std::string_view folder) {
    return folder == "/" ||
           (path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/'));
}

std::string joined(std::string_view folder, std::span<const std::string> components) {
    std::vector<std::string> all{std::string(folder)};
    all.insert(all.end(), components.begin(), components.end());
    return pathWithComponents(all);
}

bool startsWith(std::span<const std::string> components, std::string_view path) {
    const std::vector<std::string> start = pathComponents(path);
    return components.size() >= start.size() && std::equal(start.begin(), start.end(), components.begin());
}

} // namespace

std::vector<std::string> cleanedVolumeNames(const std::vector<std::string>& names) {
    std::vector<std::string> cleaned;
    std::unordered_set<std::string> taken;
    std::unordered_map<std::string, unsigned> lastNumber;
    for (const std::string& name : names) {
        const std::string base = cleanedName(name, cleaned.empty() ? bootFallback : otherFallback);
        std::string unique = base;
        unsigned& number = lastNumber.try_emplace(base, 1).first->second;
        while (!taken.insert(unique).second)
            unique = base + ' ' + std::to_string(++number);
        cleaned.push_back(unique);
    }
    return cleaned;
}

Volumes::Volumes(const std::string& bootVolumeName, std::vector<Volume> others) {
    std::vector<std::string> names{bootVolumeName};
    for (const Volume& other : others)
        names.push_back(other.name);
    names = cleanedVolumeNames(names);

    volumes_.push_back({names.front(), "/"});
    for (std::size_t i = 0; i < others.size(); ++i)
        volumes_.push_back({names[i + 1], appendPathComponent(others[i].mountPoint, {})});
}

const Volume* Volumes::volumeNamed(std::string_view name) const {
    const auto found = std::ranges::find(volumes_, name, &Volume::name);
    return found == volumes_.end() ? nullptr : &*found;
}

std::string Volumes::volumePath(std::string_view path) const {
    const std::optional<std::string> real = realPath(path);
    if (!real || !isAbsolutePath(path))
        return std::string(path);
    const Volume& volume = volumeHolding(*real);
    const std::string root = appendPathComponent(volumesFolder, volume.name);
    return appendPathComponent(root, std::string_view(*real).substr(volume.mountPoint.size()));
}

std::optional<std::string> Volumes::realPath(std::string_view path) const {
    if (path.find('\0') != std::string_view::npos)
        return std::nullopt;
    const std::vector<std::string> components = pathComponents(path);
    const std::span<const std::string> all(components);
    if (startsWith(all, dataPath))
        return joined("/", all.subspan(pathComponents(dataPath).size()));
    if (!startsWith(all, volumesFolder) || all.size() < 3)
        return pathWithComponents(components);
    const Volume* volume = volumeNamed(all[2]);
    if (!volume)
        return std::nullopt;
    return joined(volume->mountPoint, all.subspan(3));
}

std::optional<std::string> Volumes::mountPointOf(std::string_view path) const {
    const std::optional<std::string> real = realPath(path);
    if (!real)
        return std::nullopt;
    return mountPointName(volumeHolding(*real));
}

std::string Volumes::mountPointName(const Volume& volume) const {
    return volume.mountPoint == "/" ? "/" : appendPathComponent(volumesFolder, volume.name);
}

const Volume& Volumes::volumeHolding(std::string_view realPath) const {
    const Volume* deepest = &volumes_.front();
    for (const Volume& volume : volumes_) {
        if (isInside(realPath, volume.mountPoint) && volume.mountPoint.size() > deepest->mountPoint.size())
            deepest = &volume;
    }
    return *deepest;
}

} // namespace kelvane
