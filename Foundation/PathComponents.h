#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// Paths as lists of names. The first component of an absolute path is "/"; separators that are doubled or
// trail count for nothing; "." and ".." are names like any other, and nothing here looks at the disk. The
// standard library's own paths keep a trailing separator as an empty component and let an absolute name
// replace what it is appended to.

[[nodiscard]] std::vector<std::string> pathComponents(std::string_view path);

// The inverse: "/" as the first component makes the path absolute.
[[nodiscard]] std::string pathWithComponents(const std::vector<std::string>& components);

// One separator between the two, none doubled, none trailing: "/a/" and "/b" make "/a/b".
[[nodiscard]] std::string appendPathComponent(std::string_view path, std::string_view component);

// "/" of "/", empty of the empty path.
[[nodiscard]] std::string lastPathComponent(std::string_view path);

// The path without its last component: "/" of "/a" and of "/" itself, empty of "a".
[[nodiscard]] std::string deleteLastPathComponent(std::string_view path);

// What follows the last dot of the last component; empty for a name that only begins with its dot.
[[nodiscard]] std::string pathExtension(std::string_view path);

[[nodiscard]] inline bool isAbsolutePath(std::string_view path) {
    return path.starts_with('/');
}

} // namespace kelvane
