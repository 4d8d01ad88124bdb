#pragma once

#include "LocalDaemon/FileTotals.h"

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// What one folder holds by itself: its regular files, and the folders in it. Links and what is neither count
// for nothing; a file with two names counts under each.
struct FolderContents {
    int error = 0; // errno's number; 0: all of it could be read
    FileTotals own;
    std::vector<std::string> subfolders; // sorted
};

// What of a folder's entries counts.
enum class Passage {
    Refused,
    WithinFileSystem, // unless it belongs to another file system than the folder
    AnyFileSystem,
};
using Sieve = std::function<Passage(std::string_view name)>;

// These block on the disk; any thread. They end early, with less than there is, once `stopping` is set. A
// link in the last component of the path is refused (ELOOP, ENOTDIR).

[[nodiscard]] FolderContents contentsOfFolder(const std::string& path, const std::atomic<bool>& stopping,
                                              const Sieve& sieve);

// All files in the folder and below it in its file system, as far as they can be read.
[[nodiscard]] FileTotals totalsBelow(const std::string& path, const std::atomic<bool>& stopping);

} // namespace kelvane
