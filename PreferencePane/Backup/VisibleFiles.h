#pragma once

#include "Platform/Files/FileSystem.h"

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace kelvane {

struct VisibleFile {
    std::string path;
    bool isDirectory = false; // and not a link to one
};

// Selects the items of a folder that are shown to the user. Blocks on the disk; one thread only. `fileSystem`
// must outlive it.
class VisibleFiles {
public:
    using IsPathExcluded = std::function<bool(const std::string& path)>;

    // `hiddenListPath` is a text file with names that are never shown, one per line.
    explicit VisibleFiles(const FileSystem& fileSystem, std::string hiddenListPath = "/.hidden");

    // The visible items with their full paths below `path`, sorted by name without regard to ASCII case.
    // Leaves out names in the hidden list, broken links, names with a leading dot (except the user's own
    // folders for settings and data), and items for which `isExcluded` returns true; its argument ends with a
    // separator. Empty for a folder that cannot be read.
    [[nodiscard]] std::vector<VisibleFile> visibleFilesAtPath(const std::string& path,
                                                              const IsPathExcluded& isExcluded);

private:
    using Names = std::unordered_set<std::string>;

    void readHiddenList();
    [[nodiscard]] std::vector<std::string> namesAt(const std::string& path);
    [[nodiscard]] bool isInvisible(const std::string& path, std::string_view name);
    [[nodiscard]] const std::vector<std::string>& userLibraryFolders();

    const FileSystem& fileSystem_;
    const std::string hiddenListPath_;
    std::optional<Names> hiddenList_;                            // none until it has been read
    std::optional<std::vector<std::string>> userLibraryFolders_; // as `Volumes::volumePath` returns them
    std::set<std::string> incompleteFolders_;                    // folders already logged
};

} // namespace kelvane
