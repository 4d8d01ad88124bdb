#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace kelvane {

// Identifies a process even after its id is reused, by its start time.
struct ProcessIdentity {
    std::uint32_t pid = 0;
    std::uint64_t startTime = 0; // clock ticks since boot, field 22 of /proc/<pid>/stat
    std::uint32_t uid = 0;

    friend bool operator==(const ProcessIdentity&, const ProcessIdentity&) = default;
};

// None when /proc cannot be read.
[[nodiscard]] std::optional<ProcessIdentity> currentProcess();

// An authorization as passed to another program: the identity of the process that holds it. Little-endian:
// the process id at 0 (4 bytes), its start time at 4 (8 bytes), its user at 12 (4 bytes); the rest is zero.
// It is not a secret: the receiver asks the authority about that process.
inline constexpr std::size_t authorizationFormSize = 32;
using AuthorizationForm = std::array<std::uint8_t, authorizationFormSize>;

[[nodiscard]] AuthorizationForm authorizationForm(const ProcessIdentity& process);
// None when the size is wrong, the process id or start time is zero, or the rest is not zero.
[[nodiscard]] std::optional<ProcessIdentity> processOfForm(std::span<const std::uint8_t> form);

} // namespace kelvane
