#pragma once

#include <linux/filter.h>
#include <vector>

namespace kelvane {

// A program that the system runs at each system call of a process and of those that it starts.
using SystemCallFilter = std::vector<sock_filter>;

// Answers "done" to each call that would give a file a mode without write permission for the owner. Lets
// everything through on machines other than x86-64 and ARM64.
[[nodiscard]] SystemCallFilter filterOfReadOnlyModes();

// Asks whoever has the listener at each call that sets an extended attribute by a path: its first argument is
// the path, its second the name. Has no lines on other machines.
[[nodiscard]] SystemCallFilter filterOfAttributes();

// For this process and for good; afterwards it gets no rights from setuid programs. Where the system has no
// filters nothing happens. Safe between fork and exec.
void filterSystemCalls(SystemCallFilter& filter);
// The same, and returns the descriptor to listen at; -1: nothing is filtered.
[[nodiscard]] int listenerForSystemCalls(SystemCallFilter& filter);

} // namespace kelvane
