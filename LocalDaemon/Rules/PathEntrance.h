#pragma once

#include "Platform/Files/Volumes.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kelvane {

// Where the paths of one request, in the text form of the link, lead: real ones, and those that begin with a
// volume's name. Belongs to one
// thread; remembers the last folder, since many paths of one folder may come.
class PathEntrance {
public:
    explicit PathEntrance(std::shared_ptr<const Volumes> volumes) : volumes_(std::move(volumes)) {}

    [[nodiscard]] const Volumes& volumes() const { return *volumes_; }

    // The real path, clean. None for what is no absolute path, leads into a volume that is not there, or has
    // a "." or "..", which a rule for a folder could be evaded with.
    [[nodiscard]] std::optional<std::string> realPath(std::string_view text) const;
    // The same, without links in the folders on the way, as far as they are there: blocks on the disk. A file
    // has one such path alone, however it is reached; of a link it is the link's own.
    [[nodiscard]] std::optional<std::string> pathWithoutLinks(std::string_view text);

private:
    const std::shared_ptr<const Volumes> volumes_;
    std::string lastFolder_;
    std::string lastFolderWithoutLinks_;
};

} // namespace kelvane
