#pragma once

#include <cstdint>
#include <string>

namespace kelvane {

// What the person who runs the daemon has laid down about the account; panes only read it.
struct Configuration {
    std::string serverURL = "localhost";
    std::string userEmail;
    std::uint32_t computerNumber = 0;
    std::uint32_t quotaMB = 0; // 0: no limit
};

// The file is a property list in either form. None is no fault; one that cannot be read is logged, and a
// missing entry has its default: for the computer number one that this machine keeps.
[[nodiscard]] Configuration readConfiguration(const std::string& path);

// 1 to 2^31-1, the same after every start. A pane and its web pages see it, so the machine's own identity
// cannot be read from it.
[[nodiscard]] std::uint32_t numberOfThisComputer();

} // namespace kelvane
