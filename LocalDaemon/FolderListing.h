#pragma once

#include "LocalDaemon/FileTotals.h"

#include <atomic>
#include <string>
#include <vector>

namespace kelvane {

// What one folder holds by itself: its regular files, and the folders in it that belong to the same file
// system. Links and what is neither count for nothing; a file with two names counts under each.
struct FolderListing {
    int error = 0; // errno's number; 0: all of it could be read
    FileTotals own;
    std::vector<std::string> subfolders; // sorted
};

// Blocks on the disk; any thread. Ends early, with less than there is, once `stopping` is set. A link in the
// last component of the path is refused (ELOOP, ENOTDIR).
[[nodiscard]] FolderListing listFolder(const std::string& path, const std::atomic<bool>& stopping);

} // namespace kelvane
