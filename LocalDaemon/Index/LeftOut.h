#pragma once

#include "LocalDaemon/Index/BackupIndex.h"

#include <string_view>

namespace kelvane {

// Whether the folder was saved later than what it held as `child`, and without it, though it would have been
// saved with it: the child counts as deleted, and a restore of the folder leaves it out. Takes next to
// nothing where the newest snapshot of the folder holds the child.
[[nodiscard]] bool wasDeleted(const BackupIndex& index, const BackupIndex::Item& folder,
                              const BackupIndex::Item& child);

// Whether that is so of what is at the path, or of a folder that it is in.
[[nodiscard]] bool isLeftOut(const BackupIndex& index, std::string_view path);

} // namespace kelvane
