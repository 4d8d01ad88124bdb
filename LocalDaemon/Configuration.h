#pragma once

#include "Platform/Volumes.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kelvane {

// What the person who runs the daemon has laid down; panes only read it.
struct Configuration {
    std::string serverURL = "localhost";
    std::string userEmail;
    std::uint32_t computerNumber = 0;
    std::uint32_t quotaMB = 0; // 0: no limit
    std::string home;          // what automatic mode backs up
    // Wildcard patterns of what is never backed up unless a person adds it: real paths that end in "/" or a
    // star.
    std::vector<std::string> policy;
};

// The file is a property list in either form. None is no fault; one that cannot be read is logged, and a
// missing entry has its default: for the computer number one that this machine keeps, for the policy
// ("policyExcludeList", real or volume paths) caches, trash and what the kernel makes up. A pattern of
// another form is logged and left out.
[[nodiscard]] Configuration readConfiguration(const std::string& path, const std::string& home,
                                              const Volumes& volumes);

// A policy pattern as panes know it: with its volume's name, and with the separator that it ends in.
[[nodiscard]] std::string volumePattern(const std::string& pattern, const Volumes& volumes);

// 1 to 2^31-1, the same after every start. A pane and its web pages see it, so the machine's own identity
// cannot be read from it.
[[nodiscard]] std::uint32_t numberOfThisComputer();

} // namespace kelvane
