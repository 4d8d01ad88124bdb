#pragma once

#include <cstdint>
#include <string>

namespace kelvane {

class Bundle;

// The name of a service-state code for people, in the bundle's language; empty for a code that has none.
// Codes from 11 up are alerts.
[[nodiscard]] std::string stringForKelvaneServiceState(std::int32_t code, const Bundle& bundle);

} // namespace kelvane
