#pragma once

#include "Foundation/Format.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace kelvane {

// The debug log, which is off by default; a marker file enables it until the process ends. Any thread may
// write entries, but it must be enabled before other threads start. Formats are those of `formatText`: "%@"
// takes a Value or any text.
//
// An entry is one line. Line breaks are escaped, and text beyond `longestLogEntry` is replaced by a note.
// Entries go to the system log, and to standard error if that is a terminal or there is no system log.

inline constexpr const char* logMarkerPath = "/tmp/kelvane_logging";
inline constexpr std::size_t longestLogEntry = std::size_t{64} << 10U; // bytes

// Enables the debug log if the marker, a file or folder, exists. Never disables it.
void KelvaneLogStart(const std::string& markerPath = logMarkerPath);

struct LogEntry {
    std::chrono::system_clock::time_point time;
    std::string text; // escaped and cut

    // Returns "2025-01-02 03:04:05.678 name[123] text": local time, name and ID of the process, and the text.
    [[nodiscard]] std::string line() const;
};

// Receives the entries instead of the system log until its token is destroyed; the sink set last is used. It
// is called with one entry at a time, on the threads that write them. Entries that a sink writes itself are
// dropped. When the token has been destroyed, its sink is no longer running.
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

// Drops an entry that cannot be written, for example without memory: logging must not end what it reports.
template <class... Arguments>
void log(std::string_view format, const Arguments&... arguments) noexcept {
    try {
        writeLogEntry(formatTranslated(format, arguments...));
    } catch (...) {
    }
}

} // namespace detail

[[nodiscard]] inline bool KelvaneLogEnabled() {
    return detail::logEnabled.load(std::memory_order_relaxed);
}

template <class... Arguments>
void KelvaneCLog(FormatFor<Arguments...> format, const Arguments&... arguments) noexcept {
    if (KelvaneLogEnabled())
        detail::log(format.text(), arguments...);
}

template <class... Arguments>
void KelvaneLog(const std::string& format, const Arguments&... arguments) noexcept {
    if (KelvaneLogEnabled())
        detail::log(format, arguments...);
}

// Writes the entry even if the debug log is off.
template <class... Arguments>
void KelvaneSystemLog(FormatFor<Arguments...> format, const Arguments&... arguments) noexcept {
    detail::log(format.text(), arguments...);
}

} // namespace kelvane
