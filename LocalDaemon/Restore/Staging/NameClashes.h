#pragma once

#include <set>
#include <string>
#include <vector>

namespace kelvane {

// Disks that ignore case, or how an accent is written, have one file where a backup has two: restic writes
// both into it. Folders are open directories.

// Tries it in a folder of this user's.
[[nodiscard]] bool tellsNamesApart(int folder);

// Those of the names that are there and lead to a file that another one leads to as well. Such a file goes
// out of the way: only by that does a disk say which names it takes for one.
[[nodiscard]] std::set<std::string> clashingNames(int folder, const std::vector<std::string>& names);

// Whether something is there under this very name, byte for byte.
[[nodiscard]] bool hasEntry(int folder, const std::string& name);

} // namespace kelvane
