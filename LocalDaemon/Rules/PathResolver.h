#pragma once

#include "Platform/Files/Volumes.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kelvane {

// Resolves the paths of one request, which are in the text form of the protocol (see `pathFromText`), and
// are real or begin with a volume's name. Belongs to one thread; caches the last folder, since a request
// often has many paths of one folder.
class PathResolver {
public:
    explicit PathResolver(std::shared_ptr<const Volumes> volumes) : volumes_(std::move(volumes)) {}

    [[nodiscard]] const Volumes& volumes() const { return *volumes_; }

    // Returns the real, clean path. Returns none for a path that is not absolute, leads to an unknown
    // volume, or contains "." or "..", which could evade a rule for a folder.
    [[nodiscard]] std::optional<std::string> realPath(std::string_view text) const;
    // Returns the real path without links in its existing parent folders, which makes it unique for each
    // file; a link as the last component is not resolved. Blocks on the disk.
    [[nodiscard]] std::optional<std::string> pathWithoutLinks(std::string_view text);

private:
    const std::shared_ptr<const Volumes> volumes_;
    std::string lastFolder_;
    std::string lastFolderWithoutLinks_;
};

} // namespace kelvane
