#pragma once

#include <linux/filter.h>
#include <vector>

namespace kelvane {

// A BPF program that the kernel runs at each system call of a process and its children.
using SystemCallFilter = std::vector<sock_filter>;

// Reports success, without any effect, for each call that would give a file a mode without owner write
// permission. Allows everything on architectures other than x86-64 and ARM64.
[[nodiscard]] SystemCallFilter filterOfReadOnlyModes();

// Permanent for this process, which then gains no rights from setuid programs. Does nothing where the system
// has no filters. Safe between fork and exec.
void filterSystemCalls(SystemCallFilter& filter);

} // namespace kelvane
