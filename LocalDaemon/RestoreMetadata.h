#pragma once

#include <string>
#include <sys/stat.h>

namespace kelvane {

// A folder's mode, owner, times and extended attributes, as they are when it is made: what is then taken out
// of the folder changes its times. Blocks on the disk.
class FolderMetadata {
public:
    explicit FolderMetadata(const std::string& folder);

    // Lets its owner take out what is in the folder itself, whatever mode was saved. When that is not
    // possible, taking out fails and says so.
    void openStaged() const;
    // An owner that only root may give stays as it is. Empty, or why it failed.
    [[nodiscard]] std::string applyTo(const std::string& folder) const;

private:
    const std::string folder_;
    struct stat status_ {};
    bool isThere_ = false;
};

} // namespace kelvane
