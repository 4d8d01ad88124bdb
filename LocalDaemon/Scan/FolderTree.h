#pragma once

#include "LocalDaemon/Scan/FolderContents.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

struct Folder {
    std::string name; // The whole path for a root.
    Folder* parent = nullptr;
    std::vector<std::unique_ptr<Folder>> subfolders; // Sorted by name.
    FolderCounts own;
    FolderCounts below; // Including its own counts.
    // The earliest time of the next listing: a folder that is slow to list and changes constantly would
    // otherwise occupy the thread.
    std::chrono::steady_clock::time_point notBefore;
    bool isListed = false; // It has been listed at least once.
    bool isWatched = false;
    bool isReadable = true;
    bool isOnlyRecheck = false; // Its next listing was queued although no change was reported.
};

// The folders below the scan roots as they were last listed, and their counts. Only folders are stored,
// no files, so that memory grows with the number of folders, and a changed folder costs one listing.
// Belongs to one thread, except that any thread may call `countsAt`.
class FolderTree {
public:
    using Roots = std::map<std::string, std::unique_ptr<Folder>, std::less<>>; // By path.

    [[nodiscard]] const Roots& roots() const { return roots_; }
    [[nodiscard]] Folder& addRoot(const std::string& path);
    [[nodiscard]] FolderCounts totals() const;

    // Returns the counts of the folder and everything below it. None when it was not listed yet or
    // nothing in it is selected. Any thread.
    [[nodiscard]] std::optional<FolderCounts> countsAt(std::string_view path) const;

    [[nodiscard]] static std::string pathOf(const Folder& folder);
    // Returns null when there is no folder at the path.
    [[nodiscard]] Folder* find(std::string_view path) const;
    // Visits each folder after its parent.
    static void forEach(Folder& folder, const std::function<void(Folder&)>& visit);

    struct Difference {
        std::vector<Folder*> added;                   // Empty until they are listed themselves.
        std::vector<std::unique_ptr<Folder>> removed; // No longer counted; `parent` is still set.
    };
    // Replaces the contents of `folder`.
    [[nodiscard]] Difference update(Folder& folder, const FolderContents& contents);
    // Removes a root or a subfolder, which is no longer counted; `parent` is still set.
    [[nodiscard]] std::unique_ptr<Folder> remove(Folder& folder);

private:
    // Replaces these counts in `below` of the folder and of all folders above it.
    static void recount(Folder* folder, const FolderCounts& before, const FolderCounts& now);

    // The tree's own thread locks it only for changes, other threads for reading.
    mutable std::mutex mutex_;
    Roots roots_;
};

} // namespace kelvane
