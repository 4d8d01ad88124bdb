#include "Support/PathHelpers.h"

#include "Foundation/PathComponents.h"
#include "Support/WildcardMatch.h"

#include <vector>

namespace kelvane {
namespace {

constexpr std::string_view volumesFolder = "/Volumes/";
constexpr std::string_view systemVolumesFolder = "/System/Volumes/";

} // namespace

std::string kelv_rootVolumePath(const Volumes& volumes) {
    return std::string(volumesFolder) + volumes.bootVolume().name;
}

bool isKelvaneVolumePath(std::string_view path) {
    return path.starts_with(volumesFolder) || path.starts_with(systemVolumesFolder);
}

std::string stringWithKelvaneVolumePath(std::string_view path, const Volumes& volumes) {
    if (path.empty() || isKelvaneVolumePath(path))
        return std::string(path);
    return appendPathComponent(kelv_rootVolumePath(volumes), path);
}

bool kelv_isVolumePath(std::string_view path) {
    const std::vector<std::string> components = pathComponents(path);
    if (components.size() == 3)
        return components[0] == "/" && components[1] == "Volumes";
    return components.size() == 4 && components[0] == "/" && components[1] == "System" &&
           components[2] == "Volumes";
}

bool kelv_isRootVolumePath(std::string_view path, const Volumes& volumes) {
    return pathComponents(path) == pathComponents(kelv_rootVolumePath(volumes));
}

std::string kelv_shortVolumePath(std::string_view path, const Volumes& volumes) {
    return kelv_isRootVolumePath(path, volumes) ? "/" : std::string(path);
}

std::string kelv_volumeDisplayName(std::string_view path, const Volumes& volumes) {
    const std::vector<std::string> components = pathComponents(path);
    const bool namesVolume = components.size() >= 3 && components[0] == "/" && components[1] == "Volumes";
    return namesVolume ? components[2] : volumes.bootVolume().name;
}

bool kelv_isEqualToWildcardString(std::string_view text, std::string_view pattern) {
    return WildcardMatch(pattern, text);
}

} // namespace kelvane
