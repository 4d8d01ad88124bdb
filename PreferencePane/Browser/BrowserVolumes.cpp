#include "PreferencePane/Browser/BrowserVolumes.h"

#include "Foundation/Unicode.h"
#include "Support/PathHelpers.h"

namespace kelvane {

VolumeRow volumeRowFor(const std::string& fileName, const Volumes& volumes) {
    std::string title = kelv_volumeDisplayName(fileName, volumes);
    std::string path = fileName == kelv_svdPath() ? fileName : "/Volumes/" + title;
    return {std::move(title), std::move(path)};
}

std::string enteredPath(const std::string& path, const Volumes& volumes) {
    return textFromPath(volumes.mountPointOf(path) == "/" ? path : volumes.volumePath(path));
}

} // namespace kelvane
