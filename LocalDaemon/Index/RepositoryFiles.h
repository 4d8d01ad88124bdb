#pragma once

#include <string>

namespace kelvane {

// Disks that are mounted in turn at one location have a repository each. The daemon's file at `path`
// belongs to the current repository; the files of the others are kept beside it, with their ids in the
// name.
//
// Renames the file of the repository `previous` and moves that of `present`, if there is one, to `path`.
// With an empty `previous` id the old file is not renamed, and that of `present` overwrites it. A failure is
// logged.
void exchangeFile(const std::string& path, const std::string& previous, const std::string& present);

} // namespace kelvane
