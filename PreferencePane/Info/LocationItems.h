#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// One line of the pop-up that shows the location of a file.
struct LocationItem {
    enum class Kind { Folder, Computer, Unknown };

    Kind kind = Kind::Unknown;
    std::string title;
    std::string folder; // the folder's path; empty if it is not a folder

    bool operator==(const LocationItem&) const = default;
};

// The folders that contain the path, the innermost first. The outermost one below the root is shown under the
// computer's name and ends the list, and so does the root itself. A single unknown item for an empty path; no
// items for a name without a folder.
[[nodiscard]] std::vector<LocationItem> locationItems(std::string_view path, const std::string& computerName);

} // namespace kelvane
