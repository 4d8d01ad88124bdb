#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace kelvane {

// For paths that are absolute and clean: no separator is doubled or trails, no component is "." or "..".

// "/" of "/" itself.
[[nodiscard]] inline std::string_view folderOf(std::string_view path) {
    return path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
}

// What the path of everything below begins with.
[[nodiscard]] inline std::string withSeparator(std::string_view path) {
    return path.ends_with('/') ? std::string(path) : std::string(path) + '/';
}

} // namespace kelvane
