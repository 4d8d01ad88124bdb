#include "Tools/kelvanectl/Output/Terminal.h"

#include "Foundation/Format.h"
#include "Support/FileSizeFormatter.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <thread>
#include <unistd.h>

namespace kelvane::ctl {
namespace {

// Up to this size the short form would not be shorter.
constexpr std::uint64_t largestPlainSize = 1000;

bool writeAll(int descriptor, const void* bytes, std::size_t count) {
    const auto* next = static_cast<const std::uint8_t*>(bytes);
    while (count > 0) {
        const ssize_t written = ::write(descriptor, next, count);
        if (written < 0 && errno != EINTR)
            return false;
        const std::size_t advance = written < 0 ? 0 : static_cast<std::size_t>(written);
        next += advance;
        count -= advance;
    }
    return true;
}

ExitStatus finished(bool written) {
    if (written || errno == EPIPE) // A reader that has closed the pipe is not an error.
        return ExitStatus::Success;
    return complain(ExitStatus::Usage, std::string("cannot write to standard output: ") + errorText());
}

bool isEscape(std::string_view text) {
    constexpr std::size_t length = 4; // As in "\x0a".
    const auto isDigit = [](char each) { return std::isxdigit(static_cast<unsigned char>(each)) != 0; };
    return text.size() >= length && text.starts_with("\\x") && isDigit(text[2]) && isDigit(text[3]);
}

// Escapes control characters, and bytes for which `isEscaped` returns true.
template <class IsEscaped>
std::string escaped(std::string_view text, IsEscaped isEscaped) {
    std::string line;
    for (std::size_t at = 0; at < text.size();) {
        const std::string_view rest = text.substr(at);
        std::size_t left = std::max(controlLength(rest), std::size_t{isEscaped(rest)});
        if (left == 0)
            line += text[at++];
        for (; left > 0; --left, ++at) {
            std::array<char, 8> code{};
            std::snprintf(code.data(), code.size(), "\\x%02x",
                          static_cast<unsigned>(static_cast<unsigned char>(text[at])));
            line += code.data();
        }
    }
    return line;
}

} // namespace

bool writeOutput(std::string_view text) {
    return writeAll(STDOUT_FILENO, text.data(), text.size());
}

bool writeOutput(std::span<const std::uint8_t> bytes) {
    return writeAll(STDOUT_FILENO, bytes.data(), bytes.size());
}

ExitStatus finishWith(std::string_view output) {
    return finished(writeOutput(output));
}

ExitStatus finishWith(std::span<const std::uint8_t> output) {
    return finished(writeOutput(output));
}

ExitStatus complain(ExitStatus status, std::string_view reason) {
    const std::string line = "kelvanectl: " + printable(reason) + '\n';
    // A failure here cannot be reported anywhere.
    static_cast<void>(writeAll(STDERR_FILENO, line.data(), line.size()));
    return status;
}

std::size_t controlLength(std::string_view text) {
    const auto byte = [&](std::size_t at) {
        return at < text.size() ? static_cast<unsigned char>(text[at]) : 0xFFU;
    };
    const auto isBetween = [](unsigned each, unsigned first, unsigned last) {
        return each >= first && each <= last;
    };
    if (byte(0) < 0x20 || byte(0) == 0x7F)
        return 1;
    if (byte(0) == 0xC2 && isBetween(byte(1), 0x80, 0x9F))
        return 2;
    if (byte(0) == 0xD8 && byte(1) == 0x9C) // U+061C
        return 2;
    const unsigned last = byte(2);
    const bool isMark = byte(1) == 0x80 && (isBetween(last, 0x8E, 0x8F) || isBetween(last, 0xA8, 0xAE));
    const bool isIsolate = byte(1) == 0x81 && isBetween(last, 0xA6, 0xA9);
    return byte(0) == 0xE2 && (isMark || isIsolate) ? 3 : 0; // U+200E, U+2028 and similar.
}

std::string printable(std::string_view text) {
    return escaped(text, [](std::string_view) { return false; });
}

std::string printableName(std::string_view name) {
    return escaped(name, isEscape);
}

bool isColorTerminal() {
    const char* const refusal = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return (refusal == nullptr || *refusal == '\0') && terminal != nullptr &&
           std::string_view(terminal) != "dumb" && ::isatty(STDOUT_FILENO) == 1;
}

std::size_t columnsOf(std::string_view text) {
    // Not the user's locale, which may have a different character encoding.
    static const locale_t unicode = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    const locale_t before = ::uselocale(unicode);
    std::size_t columns = 0;
    while (!text.empty()) {
        std::mbstate_t state{};
        wchar_t character = 0;
        const std::size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
        const bool isCharacter = length > 0 && length <= text.size();
        columns += static_cast<std::size_t>(isCharacter ? std::max(::wcwidth(character), 0) : 1);
        text.remove_prefix(isCharacter ? length : 1);
    }
    ::uselocale(before);
    return columns;
}

std::string sizeText(std::uint64_t bytes) {
    const std::string text = std::to_string(bytes) + " bytes";
    return bytes <= largestPlainSize ? text : text + " (" + shortSizeText(bytes) + ')';
}

std::string shortSizeText(std::uint64_t bytes) {
    if (bytes <= largestPlainSize)
        return std::to_string(bytes) + " bytes";
    const std::int64_t count = static_cast<std::int64_t>(std::min(bytes, std::uint64_t{INT64_MAX}));
    return *FileSizeFormatter::sharedFileSizeAbbrevFormatter().stringFromNumber(count);
}

void pauseFor(std::chrono::milliseconds duration) {
    std::this_thread::sleep_for(duration);
}

std::string durationText(std::chrono::milliseconds duration) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.6g s", std::chrono::duration<double>(duration).count());
    return text.data();
}

} // namespace kelvane::ctl
