#pragma once

#include <string_view>

namespace kelvane {

// Whether an alert of the daemon, fields separated by "|", says that a restore is over: "restore_finished"
// with an empty fifth field. One with fewer fields is malformed and says nothing.
[[nodiscard]] bool endsRestoreProgress(std::string_view alert);

} // namespace kelvane
