#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// The identifiers of the applications that run in the user's session: an application's identifier is the name
// that it owns on the session bus. Waits for the bus, for at most two seconds; none when it does not answer.
[[nodiscard]] std::vector<std::string> runningApplications();

// Of the same length and the same but for upper and lower case.
[[nodiscard]] bool isApplicationAmong(const std::vector<std::string>& identifiers,
                                      std::string_view identifier);

} // namespace kelvane
