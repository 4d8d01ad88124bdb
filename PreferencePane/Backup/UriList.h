#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// What a list of addresses as file managers drop it (text/uri-list) names on this machine.
struct UriList {
    std::vector<std::string>
        paths; // absolute and clean, as bytes: without "." and "..", and with no separator behind
    // Lines that name no file here.
    std::vector<std::string> others;
};
// `hostName`: this machine's own.
[[nodiscard]] UriList pathsOfUriList(std::string_view list, std::string_view hostName);

} // namespace kelvane
