#pragma once

#include <string>

namespace kelvane {

// What the user calls this computer: the pretty host name in `machineInformation` (lines of KEY="value" as a
// shell reads them), else the host name; empty when neither is known.
[[nodiscard]] std::string computerName(const std::string& machineInformation = "/etc/machine-info");

} // namespace kelvane
