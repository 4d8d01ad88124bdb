#pragma once

#include "Foundation/Value.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace kelvane {

// Reads small files whole, up to a limit, and replaces them atomically, so that a reader sees the old or the
// new contents and never a mixture. Callable on any thread; blocks on the disk.

struct FileOutcome {
    int error = 0;      // a value of errno; 0: success
    std::string reason; // the failed step, the path and errno's text

    [[nodiscard]] bool succeeded() const { return error == 0; }
};

struct FileReading : FileOutcome {
    Data bytes;
};

enum class SymbolicLinks { Refuse, Follow };

// Fails when the path is not a regular file (EISDIR, EINVAL; does not wait on a pipe), when its last
// component is a link and links are refused (ELOOP), and when the file has more than `limit` bytes (EFBIG).
[[nodiscard]] FileReading readFile(const std::string& path, std::size_t limit,
                                   SymbolicLinks links = SymbolicLinks::Refuse);

// Writes a new file beside the old one, flushes it to the disk, renames it over the old one and flushes the
// folder. Until the rename, and after a failure before it, the old file is intact; when only the folder
// cannot be flushed, the new file is in place. A link at the path is replaced, not followed. The new file has
// exactly `mode`.
[[nodiscard]] FileOutcome replaceFileAtomically(const std::string& path, std::span<const std::uint8_t> bytes,
                                                mode_t mode);

// The mode of files that only their owner may read.
inline constexpr mode_t privateFileMode = 0600;

// The same for a private file; creates its folder when it is missing.
[[nodiscard]] FileOutcome replacePrivateFile(const std::string& path, std::span<const std::uint8_t> bytes);
[[nodiscard]] FileOutcome replacePrivateFile(const std::string& path, std::string_view text);

} // namespace kelvane
