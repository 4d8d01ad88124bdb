#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// One line of the pop-up that shows where a file lies.
struct LocationItem {
    enum class Kind { Folder, Computer, Unknown };

    Kind kind = Kind::Unknown;
    std::string title;
    std::string folder; // its path; empty for what is no folder

    bool operator==(const LocationItem&) const = default;
};

// The folders around the path, the innermost first. The outermost one below the root goes by the computer's
// name and ends the list, as the root itself does; so a file that lies in either of them lies on the
// computer. A single unknown item for no path, none for a name without any folder.
[[nodiscard]] std::vector<LocationItem> locationItems(std::string_view path, const std::string& computerName);

} // namespace kelvane
