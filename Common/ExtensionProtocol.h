#pragma once

#include "Common/Protocols.h"

#include <algorithm>
#include <array>

namespace kelvane {

namespace extension {

inline constexpr std::string_view alerts = "alerts";
inline constexpr std::string_view schedule = "schedule"; // adds state keys only
inline constexpr std::string_view verify = "verify";

} // namespace extension

// Methods that a daemon may implement in addition to KelvaneDaemonProtocol. Call one only while the daemon's
// state lists its extension: a daemon that does not know a method drops the request, and the caller would
// block for ever.
inline constexpr MethodDescription KelvaneExtensionProtocol[] = {
    // Takes the id of a standing alert. Returns a message for the user that says why the alert stays, or an
    // empty string when it was dismissed.
    {"dismissAlert:", "@24@0:8@16", extension::alerts},
    // Takes one of the alert's actions, exactly as the alert lists it, and the alert's id. Returns a message
    // for the user that says why nothing was done, or an empty string when the action is done or in progress.
    {"performAlertAction:ofAlert:", "@32@0:8@16@24", extension::alerts},
    // Starts to read and check everything in the backup. Returns a message for the user that says why it
    // cannot, or an empty string when the verification has started.
    {"verify", "@16@0:8", extension::verify},
};

// All methods of a daemon that has every extension.
inline constexpr auto KelvaneExtendedDaemonProtocol = [] {
    std::array<MethodDescription, std::size(KelvaneDaemonProtocol) + std::size(KelvaneExtensionProtocol)> all;
    std::ranges::copy(KelvaneExtensionProtocol, std::ranges::copy(KelvaneDaemonProtocol, all.begin()).out);
    return all;
}();

} // namespace kelvane
