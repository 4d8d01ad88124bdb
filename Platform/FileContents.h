#pragma once

#include "Foundation/Value.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace kelvane {

// Whole contents of small files, read with a limit and replaced so that a reader sees the old ones or the new
// ones and never half of them. Any thread; the calls block on the disk.

struct FileOutcome {
    int error = 0;      // errno's number; 0: it went well
    std::string reason; // the step that failed, the path and errno's text

    [[nodiscard]] bool succeeded() const { return error == 0; }
};

struct FileReading : FileOutcome {
    Data bytes;
};

enum class SymbolicLinks { Refuse, Follow };

// Fails on what is not a regular file (EISDIR, EINVAL; a pipe is not waited for), on a link in the last
// component of the path when those are refused (ELOOP), and when there are more than `limit` bytes (EFBIG).
[[nodiscard]] FileReading readFile(const std::string& path, std::size_t limit,
                                   SymbolicLinks links = SymbolicLinks::Refuse);

// Writes a new file beside the old one and renames it over it, each flushed to the disk. What stood at the
// path is whole until then and after every failure; a link there is replaced, not followed. The new file has
// exactly `mode`.
[[nodiscard]] FileOutcome replaceFileAtomically(const std::string& path, std::span<const std::uint8_t> bytes,
                                                mode_t mode);

// Of files that nobody but their owner may read.
inline constexpr mode_t privateFileMode = 0600;

// The same for a private file, whose folder is made if need be.
[[nodiscard]] FileOutcome replacePrivateFile(const std::string& path, std::span<const std::uint8_t> bytes);
[[nodiscard]] FileOutcome replacePrivateFile(const std::string& path, std::string_view text);

} // namespace kelvane
