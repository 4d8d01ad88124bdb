#pragma once

#include "Common/Protocols.h"

#include <algorithm>
#include <array>

namespace kelvane {

namespace extension {

inline constexpr std::string_view alerts = "alerts";
inline constexpr std::string_view schedule = "schedule"; // state keys alone
inline constexpr std::string_view verify = "verify";

} // namespace extension

// What a daemon may answer beyond KelvaneDaemonProtocol. A method is called only while the daemon's state
// names its extension: a daemon that does not know a method drops the request, and its caller would wait for
// ever.
inline constexpr MethodDescription KelvaneExtensionProtocol[] = {
    // The id of a standing alert. Answers why it stays, for people; empty: it is gone.
    {"dismissAlert:", "@24@0:8@16", extension::alerts},
    // One of an alert's actions, exactly as the alert lists it, and the alert's id. Answers why nothing is
    // done, for people; empty: it is done, or under way.
    {"performAlertAction:ofAlert:", "@32@0:8@16@24", extension::alerts},
    // Reads and checks all that is in the backup. Answers why it does not, for people; empty: it is under
    // way.
    {"verify", "@16@0:8", extension::verify},
};

// Everything that a daemon with all extensions answers.
inline constexpr auto KelvaneExtendedDaemonProtocol = [] {
    std::array<MethodDescription, std::size(KelvaneDaemonProtocol) + std::size(KelvaneExtensionProtocol)> all;
    std::ranges::copy(KelvaneExtensionProtocol, std::ranges::copy(KelvaneDaemonProtocol, all.begin()).out);
    return all;
}();

} // namespace kelvane
