#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// Functions for paths as lists of names. The first component of an absolute path is "/". Doubled and trailing
// separators are ignored, "." and ".." are ordinary names, and the disk is not accessed.
// std::filesystem::path differs: it keeps a trailing separator as an empty component, and appending an
// absolute path replaces the first one.

[[nodiscard]] std::vector<std::string> pathComponents(std::string_view path);

// The inverse of `pathComponents`: with "/" as the first component the path is absolute.
[[nodiscard]] std::string pathWithComponents(const std::vector<std::string>& components);

// Joins two paths with exactly one separator and without a trailing one: "/a/" and "/b" become "/a/b".
[[nodiscard]] std::string appendPathComponent(std::string_view path, std::string_view component);

// Returns "/" for "/" and an empty text for the empty path.
[[nodiscard]] std::string lastPathComponent(std::string_view path);

// Returns the path without its last component: "/" for "/a" and for "/", an empty text for "a".
[[nodiscard]] std::string deleteLastPathComponent(std::string_view path);

// Returns the text after the last dot of the last component; empty if that dot is its first character.
[[nodiscard]] std::string pathExtension(std::string_view path);

[[nodiscard]] inline bool isAbsolutePath(std::string_view path) {
    return path.starts_with('/');
}

} // namespace kelvane
