#pragma once

#include "LocalDaemon/Index/BackupIndex.h"

#include <string_view>

namespace kelvane {

// Returns whether a later snapshot of the folder lacks the child although it would have included it. Such a
// child counts as deleted, and a restore of the folder leaves it out. Costs one comparison of numbers if the
// newest snapshot of the folder holds the child.
[[nodiscard]] bool wasDeleted(const BackupIndex& index, const BackupIndex::Item& folder,
                              const BackupIndex::Item& child);

// Returns whether `wasDeleted` holds for the item at the path or for a folder that contains it.
[[nodiscard]] bool isLeftOut(const BackupIndex& index, std::string_view path);

} // namespace kelvane
