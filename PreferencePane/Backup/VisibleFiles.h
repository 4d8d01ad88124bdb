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
    bool isDirectory = false; // and no link to one
};

// Which of a folder's items a person is shown. Blocks on the disk; one thread. `fileSystem` outlives it.
class VisibleFiles {
public:
    using IsPathExcluded = std::function<bool(const std::string& path)>;

    // `hiddenListPath`: a text file with the names that are shown nowhere, one a line.
    explicit VisibleFiles(const FileSystem& fileSystem, std::string hiddenListPath = "/.hidden");

    // The items, with their full paths below `path`, by their names, upper and lower case of ASCII letters
    // being the same.
    // Left out are names of the hidden list, links that lead nowhere, what a leading dot makes invisible (but
    // not the user's own folders for settings and data), and what `isExcluded` says so of; it is asked with a
    // separator behind the path. Nothing for a folder that cannot be read.
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
    std::optional<Names> hiddenList_;                            // none until it could be read
    std::optional<std::vector<std::string>> userLibraryFolders_; // volume paths
    std::set<std::string> incompleteFolders_;                    // that have been logged
};

} // namespace kelvane
