#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// The identifiers of the applications in the user's session; an application owns its identifier as a name on
// the session bus. Waits for the bus for at most two seconds; empty when it does not answer.
[[nodiscard]] std::vector<std::string> runningApplications();

// Whether the identifier is one of these, upper and lower case being equal.
[[nodiscard]] bool isApplicationAmong(const std::vector<std::string>& identifiers,
                                      std::string_view identifier);

} // namespace kelvane
