#pragma once

#include "Foundation/Format.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace kelvane {

// The log. Each entry has a level, and the system log receives it with that priority. Entries below the level
// of the process are not written; by default these are the debug entries, which a marker file enables until
// the process ends. Any thread may write entries, but the level must be set before other threads start.
// Formats are those of `formatText`: "%@" takes a Value or any text.
//
// An entry is one line. Line breaks are escaped, and text beyond `longestLogEntry` is replaced by a note.
// Entries go to the system log, and to standard error if that is a terminal or there is no system log.

inline constexpr const char* logMarkerPath = "/tmp/kelvane_logging";
inline constexpr std::size_t longestLogEntry = std::size_t{64} << 10U; // bytes

enum class LogLevel { Error = 3, Warning = 4, Notice = 5, Debug = 7 }; // the priorities of syslog

// Writes entries of this level and of more severe ones from now on.
void setLogLevel(LogLevel level);

// Enables the debug log if the marker, a file or folder, exists. Never disables it.
void KelvaneLogStart(const std::string& markerPath = logMarkerPath);

struct LogEntry {
    std::chrono::system_clock::time_point time;
    LogLevel level = LogLevel::Notice;
    std::string text; // escaped and cut

    // Returns "2025-01-02 03:04:05.678 name[123] text": local time, name and ID of the process, and the text.
    // The text of an error or a warning begins with "error: " or "warning: ".
    [[nodiscard]] std::string line() const;
};

// Whether a text begins as the line of an entry that this program wrote.
[[nodiscard]] bool beginsAsLogEntry(std::string_view text);

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

inline std::atomic<LogLevel> logLevel = LogLevel::Notice;

void writeLogEntry(LogLevel level, std::string_view text);

// Drops an entry that cannot be written, for example without memory: logging must not end what it reports.
template <class... Arguments>
void log(LogLevel level, std::string_view format, const Arguments&... arguments) noexcept {
    try {
        if (level <= logLevel.load(std::memory_order_relaxed))
            writeLogEntry(level, formatTranslated(format, arguments...));
    } catch (...) {
    }
}

} // namespace detail

// Returns whether debug entries are written. Callers ask before they build expensive texts.
[[nodiscard]] inline bool KelvaneLogEnabled() {
    return detail::logLevel.load(std::memory_order_relaxed) == LogLevel::Debug;
}

template <class... Arguments>
void KelvaneCLog(FormatFor<Arguments...> format, const Arguments&... arguments) noexcept {
    detail::log(LogLevel::Debug, format.text(), arguments...);
}

// Reports a failure that matters only while debugging.
template <class... Arguments>
void KelvaneCLogError(FormatFor<Arguments...> format, const Arguments&... arguments) noexcept {
    if (KelvaneLogEnabled())
        detail::log(LogLevel::Error, format.text(), arguments...);
}

template <class... Arguments>
void KelvaneLog(const std::string& format, const Arguments&... arguments) noexcept {
    detail::log(LogLevel::Debug, format, arguments...);
}

// Reports that something was lost or could not be done.
template <class... Arguments>
void logError(FormatFor<Arguments...> format, const Arguments&... arguments) noexcept {
    detail::log(LogLevel::Error, format.text(), arguments...);
}

// Reports a fault that the program works around or will try to get over later.
template <class... Arguments>
void logWarning(FormatFor<Arguments...> format, const Arguments&... arguments) noexcept {
    detail::log(LogLevel::Warning, format.text(), arguments...);
}

// Reports what was done.
template <class... Arguments>
void logNotice(FormatFor<Arguments...> format, const Arguments&... arguments) noexcept {
    detail::log(LogLevel::Notice, format.text(), arguments...);
}

} // namespace kelvane
