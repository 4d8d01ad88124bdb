#pragma once

#include <set>
#include <string>
#include <vector>

namespace kelvane {

// On file systems that ignore case, or the encoding of accents, two names of a backup are one file, and
// restic writes both into it. Folders are open directories.

// Returns whether a folder's file system tells such names apart, which is tested by creating a folder in it;
// true also when that fails.
[[nodiscard]] bool tellsNamesApart(int folder);

// Returns the names that exist and lead to the same file as another name. Such a file is renamed, to
// "clash-<number>", since only that shows which names the file system treats as equal.
[[nodiscard]] std::set<std::string> clashingNames(int folder, const std::vector<std::string>& names);

// Returns whether there is an entry with exactly this name, byte for byte.
[[nodiscard]] bool hasEntry(int folder, const std::string& name);

} // namespace kelvane
