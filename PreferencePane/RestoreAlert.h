#pragma once

#include <string_view>

namespace kelvane {

// Whether an alert of the daemon, with fields separated by "|", reports the end of a restore:
// "restore_finished" with an empty fifth field. False for a malformed alert with fewer fields.
[[nodiscard]] bool endsRestoreProgress(std::string_view alert);

} // namespace kelvane
