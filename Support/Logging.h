#pragma once

#include "Foundation/Format.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace kelvane {

// Diagnostics: off by default, switched on for the life of the process by a marker file. Any thread may
// write; the switch is turned before other threads start. A format is as for `formatText`: "%@" takes a Value
// or any text.
//
// An entry is one line: what would break it is escaped, and what goes beyond `longestLogEntry` is cut with a
// note. It goes to the system log, and to standard error when that is a terminal or there is no system log.

inline constexpr const char* logMarkerPath = "/tmp/kelvane_logging";
inline constexpr std::size_t longestLogEntry = std::size_t{64} << 10U; // bytes

// Looks for the marker (a file or folder) this once. Never turns logging off again.
void KelvaneLogStart(const std::string& markerPath = logMarkerPath);

struct LogEntry {
    std::chrono::system_clock::time_point time;
    std::string text; // escaped and cut

    // "2025-01-02 03:04:05.678 name[123] text" with the local time, the process's name and its id.
    [[nodiscard]] std::string line() const;
};

// Where entries go instead, until the token dies; of several, the one set last counts. Entries come one at a
// time, on the threads that write them; an entry that a sink itself writes is dropped. After the token's
// death its sink is not running any more.
using LogSink = std::function<void(const LogEntry&)>;

class [[nodiscard]] LogSinkToken {
public:
    LogSinkToken() = default;
    explicit LogSinkToken(std::shared_ptr<void> registration) : registration_(std::move(registration)) {}

private:
    std::shared_ptr<void> registration_;
};

LogSinkToken setLogSink(LogSink sink);

namespace detail {

inline std::atomic<bool> logEnabled = false;

void writeLogEntry(std::string_view text);

// What cannot be written, for want of memory most likely, is dropped: a line must not end what it tells of.
template <class... Arguments>
void log(std::string_view format, const Arguments&... arguments) noexcept {
    try {
        writeLogEntry(formatText(format, arguments...));
    } catch (...) {
    }
}

} // namespace detail

[[nodiscard]] inline bool KelvaneLogEnabled() {
    return detail::logEnabled.load(std::memory_order_relaxed);
}

template <class... Arguments>
void KelvaneCLog(const char* format, const Arguments&... arguments) noexcept {
    if (KelvaneLogEnabled() && format != nullptr)
        detail::log(format, arguments...);
}

template <class... Arguments>
void KelvaneLog(const std::string& format, const Arguments&... arguments) noexcept {
    if (KelvaneLogEnabled())
        detail::log(format, arguments...);
}

// Writes whatever the switch says.
template <class... Arguments>
void KelvaneSystemLog(std::string_view format, const Arguments&... arguments) noexcept {
    detail::log(format, arguments...);
}

} // namespace kelvane
