#include "Support/Logging.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

namespace kelvane {
namespace {

constexpr const char* systemLogSocket = "/dev/log";

struct Sinks {
    std::mutex mutex; // held while a sink runs: entries come one at a time, and a token's death waits for it
    std::vector<const LogSink*> sinks;
};

// Lives as long as the process: threads and destructors log to the very end.
Sinks& allSinks() {
    static auto* const sinks = new Sinks;
    return *sinks;
}

bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

// The text without line breaks and without what a terminal would take for a command; the two-byte controls of
// UTF-8 (U+0080 to U+009F) are commands as well.
std::string escaped(std::string_view text, std::size_t at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    const bool isSecondOfControl = byte >= 0x80 && byte <= 0x9F && at > 0 && text[at - 1] == '\xC2';
    if (byte >= 0x20 && byte != 0x7F && !isSecondOfControl)
        return {text[at]};
    switch (byte) {
    case '\n': return "\\n";
    case '\r': return "\\r";
    case '\t': return "\\t";
    default: break;
    }
    std::array<char, 8> code{};
    std::snprintf(code.data(), code.size(), "\\x%02x", static_cast<unsigned>(byte));
    return code.data();
}

std::string oneLine(std::string_view text) {
    std::string line;
    line.reserve(std::min(text.size(), longestLogEntry));
    for (std::size_t at = 0; at < text.size(); ++at) {
        // Not in the middle of a character, unless there is no end to it.
        if (line.size() >= longestLogEntry &&
            (!isContinuation(text[at]) || line.size() >= longestLogEntry + 4))
            return line + " [" + std::to_string(text.size() - at) + " more bytes]";
        line += escaped(text, at);
    }
    return line;
}

// A reader of standard error that has gone must not end the process: SIGPIPE is held back, and taken where it
// came.
void writeToStandardError(const LogEntry& entry) {
    const std::string line = entry.line() + '\n';
    sigset_t brokenPipe;
    sigset_t before;
    sigset_t pending;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    sigpending(&pending);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, &before);
    // One call, so that lines of several processes do not mix. There is nowhere to report a failure.
    const ssize_t size = ::write(STDERR_FILENO, line.data(), line.size());
    const timespec now{};
    if (size < 0 && errno == EPIPE && sigismember(&pending, SIGPIPE) == 0)
        ::sigtimedwait(&brokenPipe, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void writeToSystem(const LogEntry& entry) {
    static const bool opened = (::openlog(nullptr, LOG_PID, LOG_USER), true);
    const bool hasSystemLog = opened && ::access(systemLogSocket, W_OK) == 0;
    if (hasSystemLog)
        ::syslog(LOG_NOTICE, "%s", entry.text.c_str());
    if (!hasSystemLog || ::isatty(STDERR_FILENO) != 0)
        writeToStandardError(entry);
}

} // namespace

void KelvaneLogStart(const std::string& markerPath) {
    struct stat status {};
    if (::stat(markerPath.c_str(), &status) == 0)
        detail::logEnabled = true;
}

std::string LogEntry::line() const {
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(time).time_since_epoch().count();
    const std::time_t seconds = milliseconds / 1000;
    std::tm local{};
    ::localtime_r(&seconds, &local);
    std::array<char, 32> stamp{};
    std::strftime(stamp.data(), stamp.size(), "%Y-%m-%d %H:%M:%S", &local);
    return formatText("%s.%03d %s[%d] ", stamp.data(), milliseconds % 1000, program_invocation_short_name,
                      ::getpid()) +
           text;
}

LogSinkToken setLogSink(LogSink sink) {
    const auto remove = [](LogSink* removed) {
        {
            const std::scoped_lock guard(allSinks().mutex);
            std::erase(allSinks().sinks, removed);
        }
        delete removed;
    };
    std::shared_ptr<LogSink> registration(new LogSink(std::move(sink)), remove);
    const std::scoped_lock guard(allSinks().mutex);
    allSinks().sinks.push_back(registration.get());
    return LogSinkToken(std::move(registration));
}

void detail::writeLogEntry(std::string_view text) {
    static thread_local bool isWriting = false;
    if (isWriting)
        return;
    const LogEntry entry{std::chrono::system_clock::now(), oneLine(text)};
    struct Writing {
        Writing() { isWriting = true; }
        ~Writing() { isWriting = false; }
    };
    const std::scoped_lock guard(allSinks().mutex);
    const Writing writing;
    if (allSinks().sinks.empty()) {
        writeToSystem(entry);
    } else {
        (*allSinks().sinks.back())(entry);
    }
}

} // namespace kelvane
