#include "Tools/kelvanectl/Arguments/PathPattern.h"

#include "Foundation/PathComponents.h"
#include "Foundation/Unicode.h"
#include "Support/WildcardMatch.h"

#include <algorithm>
#include <filesystem>

namespace kelvane::ctl {
namespace {

bool isOnDisk(const std::string& path) {
    std::error_code error;
    return std::filesystem::exists(std::filesystem::symlink_status(pathFromText(path), error));
}

// Returns the folder that contains the first name with an asterisk.
std::string folderOf(std::string pattern) {
    while (pattern.find('*') != std::string::npos)
        pattern = deleteLastPathComponent(pattern);
    return pattern;
}

} // namespace

PathPattern::PathPattern(const std::string& volumePath, const Volumes& volumes)
    : volumes_(volumes),
      pattern_(volumes.realPath(volumePath).value_or(volumePath)),
      isPattern_(pattern_.find('*') != std::string::npos && !isOnDisk(pattern_)) {}

bool PathPattern::matches(const std::string& volumePath) const {
    return WildcardMatch(pattern_, volumes_.realPath(volumePath).value_or(volumePath));
}

std::vector<std::string> PathPattern::matchesOnDisk() const {
    using Iterator = std::filesystem::recursive_directory_iterator;
    const std::string folder = folderOf(pattern_);
    const bool isOfAnyDepth = pattern_.find("**") != std::string::npos;
    const auto deepest =
        static_cast<int>(pathComponents(pattern_).size() - pathComponents(folder).size()) - 1;
    std::vector<std::string> paths;
    std::error_code error;
    for (Iterator entry(pathFromText(folder), std::filesystem::directory_options::skip_permission_denied);
         entry != Iterator(); entry.increment(error)) {
        const std::string path = textFromPath(entry->path().string());
        const bool isMatch = WildcardMatch(pattern_, path);
        if (isMatch)
            paths.push_back(volumes_.volumePath(path));
        if (isMatch || (!isOfAnyDepth && entry.depth() >= deepest))
            entry.disable_recursion_pending();
    }
    std::ranges::sort(paths);
    return paths;
}

} // namespace kelvane::ctl
