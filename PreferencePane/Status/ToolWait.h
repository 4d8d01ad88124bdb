#pragma once

#include "Platform/Processes/ChildProcess.h"

#include <chrono>
#include <functional>

namespace kelvane {

inline constexpr std::chrono::milliseconds lookInterval{250};

// Looks whether it is over, when the process ends and every `lookInterval`, until it is. The event loop runs
// meanwhile, so that the window is painted and the link is served, but what the user does waits for the end.
// False when the application has to end before; the process then goes on by itself.
[[nodiscard]] bool waitUntil(const std::function<bool()>& isOver, const ChildProcess& process);

} // namespace kelvane
