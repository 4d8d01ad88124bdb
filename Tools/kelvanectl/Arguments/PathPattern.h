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
    // The volume paths of what is on the disk and matches, without what is in a folder that does. Links are
    // not followed. Throws std::filesystem::filesystem_error when the folder that it begins with cannot be
    // read; others that cannot are passed over.
    [[nodiscard]] std::vector<std::string> matchesOnDisk() const;

private:
    const Volumes& volumes_;
    const std::string pattern_; // A real path.
    const bool isPattern_;
};

} // namespace kelvane::ctl
