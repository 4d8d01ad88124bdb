#pragma once

#include "Platform/Processes/ChildProcess.h"

#include <chrono>
#include <functional>

namespace kelvane {

inline constexpr std::chrono::milliseconds checkInterval{250};

// Calls `isOver` when the process ends and every `checkInterval`, until it returns true. The event loop runs
// meanwhile: the window paints and the link is served, but user input is delayed. Returns false when the
// application must end first; the process then continues by itself.
[[nodiscard]] bool waitUntil(const std::function<bool()>& isOver, const ChildProcess& process);

} // namespace kelvane
