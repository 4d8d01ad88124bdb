#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace kelvane {

// A clean path is absolute and has no doubled or trailing separator and no component "." or "..".

// The folder that holds all others. As the path of a change it stands for every file.
inline constexpr const char* everything = "/";

// Returns the parent folder of a clean path, and "/" for "/" and for a path that is not absolute.
[[nodiscard]] inline std::string_view folderOf(std::string_view path) {
    const std::size_t separator = path.rfind('/');
    return separator == std::string_view::npos ? "/" : path.substr(0, std::max<std::size_t>(separator, 1));
}

// Returns the prefix of all paths below `path`: the path with a trailing separator.
[[nodiscard]] inline std::string withSeparator(std::string_view path) {
    return path.ends_with('/') ? std::string(path) : std::string(path) + '/';
}

[[nodiscard]] inline bool isCleanPath(std::string_view path) {
    const std::string whole = withSeparator(path);
    const auto holds = [&](std::string_view text) { return whole.find(text) != std::string::npos; };
    return path == "/" || (path.starts_with('/') && !path.ends_with('/') && !holds("//") && !holds("/./") &&
                           !holds("/../") && !holds(std::string_view("\0", 1)));
}

} // namespace kelvane
