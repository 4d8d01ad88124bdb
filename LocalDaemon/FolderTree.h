#pragma once

#include "LocalDaemon/FolderContents.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

struct Folder {
    std::string name; // a root's is its whole path
    Folder* parent = nullptr;
    std::vector<std::unique_ptr<Folder>> subfolders; // sorted by name
    FileTotals own;
    // Not listed again before this: a folder that takes long to list and changes all the time would take all
    // the time.
    std::chrono::steady_clock::time_point notBefore;
    bool isListed = false; // at least once
    bool isWatched = false;
    bool isReadable = true;
};

// The folders below some roots as they were last listed, and what they hold together. Remembers folders and
// no files, so that its memory grows with the folders alone, and one that has changed costs one listing.
// Belongs to one thread.
class FolderTree {
public:
    using Roots = std::map<std::string, std::unique_ptr<Folder>, std::less<>>; // by path

    [[nodiscard]] const Roots& roots() const { return roots_; }
    [[nodiscard]] Folder& addRoot(const std::string& path);
    [[nodiscard]] const FileTotals& totals() const { return totals_; }

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
    void discount(Folder& folder);

    Roots roots_;
    FileTotals totals_;
};

} // namespace kelvane
