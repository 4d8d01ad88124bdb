#include "Support/Logging.h"

#include "Foundation/Unicode.h"
#include "Platform/SocketClaim.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
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
    std::mutex mutex; // held while a sink runs, so that the destructor of its token waits for it
    std::vector<const LogSink*> sinks;
};

// Never destroyed, because threads and destructors log until the process ends.
Sinks& allSinks() {
    static auto* const sinks = new Sinks;
    return *sinks;
}

// The first character of a text that is not empty; a byte that is not UTF-8 counts as a character.
std::string_view firstCharacter(std::string_view text) {
    constexpr std::size_t longestCharacter = 4;
    for (std::size_t size = 1; size <= std::min(text.size(), longestCharacter); ++size)
        if (isUtf8(text.substr(0, size)))
            return text.substr(0, size);
    return text.substr(0, 1);
}

// Whether a terminal shows the character as it is. The control characters U+0080 to U+009F are also commands
// to a terminal, and so are single bytes of that range to one that does not use UTF-8.
bool isPlain(std::string_view character) {
    const auto first = static_cast<unsigned char>(character.front());
    if (character.size() == 1)
        return first >= 0x20 && first < 0x7F;
    return first != 0xC2 || static_cast<unsigned char>(character[1]) > 0x9F;
}

// Escapes line breaks and characters that a terminal would execute as commands.
std::string escaped(std::string_view character) {
    if (isPlain(character))
        return std::string(character);
    switch (character.front()) {
    case '\n': return "\\n";
    case '\r': return "\\r";
    case '\t': return "\\t";
    default: break;
    }
    std::string codes;
    for (const char byte : character)
        codes += formatText("\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    return codes;
}

std::string oneLine(std::string_view text) {
    std::string line;
    line.reserve(std::min(text.size(), longestLogEntry));
    while (!text.empty()) {
        if (line.size() >= longestLogEntry)
            return line + " [" + std::to_string(text.size()) + " more bytes]";
        const std::string_view character = firstCharacter(text);
        line += escaped(character);
        text.remove_prefix(character.size());
    }
    return line;
}

std::string_view wordOf(LogLevel level) {
    switch (level) {
    case LogLevel::Error: return "error: ";
    case LogLevel::Warning: return "warning: ";
    case LogLevel::Notice:
    case LogLevel::Debug: break;
    }
    return {};
}

// A closed standard error must not end the process: blocks SIGPIPE, and discards the signal of this write.
void writeToStandardError(const LogEntry& entry) {
    const std::string line = entry.line() + '\n';
    sigset_t brokenPipe;
    sigset_t before;
    sigset_t pending;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    sigpending(&pending);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, &before);
    // A single write, so that lines of several processes do not mix. There is nowhere to report a failure.
    const ssize_t size = ::write(STDERR_FILENO, line.data(), line.size());
    const timespec now{};
    if (size < 0 && errno == EPIPE && sigismember(&pending, SIGPIPE) == 0)
        ::sigtimedwait(&brokenPipe, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// Checked for each entry by connecting: the socket's file may outlive the system log.
bool hasSystemLog() {
    return probeSocket(systemLogSocket, SOCK_DGRAM).error == 0;
}

void writeToSystem(const LogEntry& entry) {
    const bool isTaken = hasSystemLog();
    if (isTaken) {
        ::openlog(nullptr, LOG_PID, LOG_USER);
        ::syslog(static_cast<int>(entry.level), "%s", entry.text.c_str());
    }
    if (!isTaken || ::isatty(STDERR_FILENO) != 0)
        writeToStandardError(entry);
}

} // namespace

static_assert(static_cast<int>(LogLevel::Error) == LOG_ERR &&
              static_cast<int>(LogLevel::Warning) == LOG_WARNING &&
              static_cast<int>(LogLevel::Notice) == LOG_NOTICE &&
              static_cast<int>(LogLevel::Debug) == LOG_DEBUG);

void KelvaneLogStart(const std::string& markerPath) {
    struct stat status {};
    if (::stat(markerPath.c_str(), &status) == 0)
        setLogLevel(LogLevel::Debug);
}

void setLogLevel(LogLevel level) {
    detail::logLevel = level;
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
           std::string(wordOf(level)) + text;
}

bool beginsAsLogEntry(std::string_view text) {
    constexpr std::string_view stamp = "0000-00-00 00:00:00.000 ";
    const auto fits = [](char wanted, char found) {
        return wanted == '0' ? found >= '0' && found <= '9' : found == wanted;
    };
    const std::string_view begin = text.substr(0, stamp.size());
    return std::equal(stamp.begin(), stamp.end(), begin.begin(), begin.end(), fits) &&
           text.substr(stamp.size()).starts_with(std::string(program_invocation_short_name) + '[');
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

void detail::writeLogEntry(LogLevel level, std::string_view text) {
    static thread_local bool isWriting = false;
    if (isWriting)
        return;
    const LogEntry entry{std::chrono::system_clock::now(), level, oneLine(text)};
    struct Writing {
        Writing() { isWriting = true; }
        ~Writing() { isWriting = false; }
    };
    const Writing writing;
    {
        const std::scoped_lock guard(allSinks().mutex);
        if (!allSinks().sinks.empty())
            return (*allSinks().sinks.back())(entry);
    }
    writeToSystem(entry); // without the lock, because it may block
}

} // namespace kelvane
