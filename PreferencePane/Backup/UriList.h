#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// The files of this machine in a URI list (text/uri-list), as file managers drop it.
struct UriList {
    // Absolute, in the bytes of the file system, without ".", ".." and a trailing separator.
    std::vector<std::string> paths;
    // Lines that are not a file of this machine.
    std::vector<std::string> others;
};
// `hostName` is the name of this machine.
[[nodiscard]] UriList pathsOfUriList(std::string_view list, std::string_view hostName);

} // namespace kelvane
