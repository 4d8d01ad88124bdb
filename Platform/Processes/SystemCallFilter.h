#pragma once

#include <linux/filter.h>
#include <vector>

namespace kelvane {

// A program that the system runs at each system call of a process and of those that it starts.
using SystemCallFilter = std::vector<sock_filter>;

// Answers "done" to each call that would give a file a mode without write permission for the owner. Lets
// everything through on machines other than x86-64 and ARM64.
[[nodiscard]] SystemCallFilter filterOfReadOnlyModes();

// For this process and for good; afterwards it gets no rights from setuid programs. Where the system has no
// filters nothing happens. Safe between fork and exec.
void filterSystemCalls(SystemCallFilter& filter);

} // namespace kelvane
