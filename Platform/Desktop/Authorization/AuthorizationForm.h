#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace kelvane {

// One process, also after its id has been given to another: the start time tells them apart.
struct ProcessIdentity {
    std::uint32_t pid = 0;
    std::uint64_t startTime = 0; // clock ticks since the machine was started, field 22 of /proc/<pid>/stat
    std::uint32_t uid = 0;

    friend bool operator==(const ProcessIdentity&, const ProcessIdentity&) = default;
};

// None when /proc does not say.
[[nodiscard]] std::optional<ProcessIdentity> currentProcess();

// An authorization as it is handed to another program: the process that it was given to. Little-endian: the
// process id at 0 (4 bytes), its start time at 4 (8 bytes), its user at 12 (4 bytes); the rest is zero. It is
// a name, not a secret: whoever receives it asks the authority about that process.
inline constexpr std::size_t authorizationFormSize = 32;
using AuthorizationForm = std::array<std::uint8_t, authorizationFormSize>;

[[nodiscard]] AuthorizationForm authorizationForm(const ProcessIdentity& process);
// None when it has another size, names no process or start time, or has anything behind the user.
[[nodiscard]] std::optional<ProcessIdentity> processOfForm(std::span<const std::uint8_t> form);

} // namespace kelvane
