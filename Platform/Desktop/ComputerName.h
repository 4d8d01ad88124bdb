#pragma once

#include <string>

namespace kelvane {

// The user's name for this computer: the pretty host name in `machineInformation` (lines of KEY="value" with
// a shell's quoting), otherwise the host name; empty when both are unknown.
[[nodiscard]] std::string computerName(const std::string& machineInformation = "/etc/machine-info");

} // namespace kelvane
