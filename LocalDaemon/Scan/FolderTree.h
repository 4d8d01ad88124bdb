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
    std::string name; // a root's is its whole path
    Folder* parent = nullptr;
    std::vector<std::unique_ptr<Folder>> subfolders; // sorted by name
    FolderCounts own;
    FolderCounts below; // with its own
    // Not listed again before this: a folder that takes long to list and changes all the time would take all
    // the time.
    std::chrono::steady_clock::time_point notBefore;
    bool isListed = false; // at least once
    bool isWatched = false;
    bool isReadable = true;
    bool isOnlyLookedAt = false; // when it is listed next, though nothing tells of a change
};

// The folders below some roots as they were last listed, and what they hold together. Remembers folders and
// no files, so that its memory grows with the folders alone, and one that has changed costs one listing.
// Belongs to one thread, but what a folder holds may be asked by any.
class FolderTree {
public:
    using Roots = std::map<std::string, std::unique_ptr<Folder>, std::less<>>; // by path

    [[nodiscard]] const Roots& roots() const { return roots_; }
    [[nodiscard]] Folder& addRoot(const std::string& path);
    [[nodiscard]] FolderCounts totals() const;

    // Of the folder and all below. None: it was not listed yet, or nothing in it is to be backed up. Any
    // thread.
    [[nodiscard]] std::optional<FolderCounts> countsAt(std::string_view path) const;

    [[nodiscard]] static std::string pathOf(const Folder& folder);
    // Null when there is none at that path.
    [[nodiscard]] Folder* find(std::string_view path) const;
    // Each folder after the one that holds it.
    static void forEach(Folder& folder, const std::function<void(Folder&)>& visit);

    struct Difference {
        std::vector<Folder*> added; // empty until they are listed themselves
        std::vector<std::unique_ptr<Folder>>
            removed; // what they held counts no longer; `parent` is still set
    };
    // Takes over what `folder` holds now.
    [[nodiscard]] Difference update(Folder& folder, const FolderContents& contents);
    // A root, or what its parent holds; it counts no longer, `parent` is still set.
    [[nodiscard]] std::unique_ptr<Folder> remove(Folder& folder);

private:
    // Where the counts of a folder have changed, so have those of the folders that hold it.
    static void recount(Folder* folder, const FolderCounts& before, const FolderCounts& now);

    // Its own thread takes it for changes only, others for what they read.
    mutable std::mutex mutex_;
    Roots roots_;
};

} // namespace kelvane
