#pragma once

#include "Foundation/Value.h"

namespace kelvane::bench {

// The dictionary of a file as the daemon sends it. Names, paths, sizes and dates vary as on a real disk: a
// hundred files per folder, an accent in one name of eight, sizes from zero to gigabytes.
[[nodiscard]] Dictionary fileDictionary(unsigned number);

// An array of `count` of them.
[[nodiscard]] Value fileDictionaries(unsigned count);

} // namespace kelvane::bench
