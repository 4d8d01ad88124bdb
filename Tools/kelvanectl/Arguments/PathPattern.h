#pragma once

#include "Platform/Files/Volumes.h"

#include <string>
#include <vector>

namespace kelvane::ctl {

// A path with asterisks, as in exclusion patterns. A path that exists literally is not a pattern.
class PathPattern {
public:
    // `volumePath`: a result of volumePathFromText.
    PathPattern(const std::string& volumePath, const Volumes& volumes);

    [[nodiscard]] bool isPattern() const { return isPattern_; }
    [[nodiscard]] bool matches(const std::string& volumePath) const;
    // Returns the volume paths of matching files and folders on the disk, without the contents of a matching
    // folder. Links are not followed. Throws std::filesystem::filesystem_error when the folder above the
    // first asterisk cannot be read; other unreadable folders are skipped.
    [[nodiscard]] std::vector<std::string> matchesOnDisk() const;

private:
    const Volumes& volumes_;
    const std::string pattern_; // A real path.
    const bool isPattern_;
};

} // namespace kelvane::ctl
