#pragma once

#include "Foundation/Value.h"

namespace kelvane::bench {

// The dictionary of a file as the daemon sends it. Names, paths, sizes and dates differ from file to file as
// they do on a disk: folders of a hundred files, one name in eight with an accent, sizes from nothing to
// gigabytes.
[[nodiscard]] Dictionary fileDictionary(unsigned number);

// An array of `count` of them.
[[nodiscard]] Value fileDictionaries(unsigned count);

} // namespace kelvane::bench
