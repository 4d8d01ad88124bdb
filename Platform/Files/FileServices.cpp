#include "Platform/Files/FileServices.h"

#include "Foundation/Unicode.h"

#include <array>
#include <cmath>
#include <ctime>

namespace kelvane {
namespace {

// Sets only these categories: another one that names a locale that is not installed would make the call fail.
constexpr int dateCategories = LC_TIME_MASK | LC_CTYPE_MASK;

// In seconds before or after 1970. No calendar counts years beyond it, and a time_t may not hold the second.
constexpr double latestTime = 1e15;

std::optional<std::tm> localTime(Date date) {
    const double second = std::floor(date.secondsSinceReference + Date::referenceTime);
    if (!(std::abs(second) < latestTime))
        return std::nullopt;
    const auto time = static_cast<std::time_t>(second);
    std::tm calendar{};
    return ::localtime_r(&time, &calendar) ? std::optional(calendar) : std::nullopt;
}

std::string formatted(const std::tm& calendar, locale_t locale) {
    std::array<char, 256> text{};
    const std::size_t length = ::strftime_l(text.data(), text.size(), "%x %X", &calendar, locale);
    return {text.data(), length};
}

} // namespace

bool FileServices::isAlias(const std::string& path) const {
    const std::optional<FileAttributes> attributes = fileSystem_.attributes(path);
    return attributes && attributes->kind == FileAttributes::Kind::SymbolicLink;
}

PlainFileServices::PlainFileServices(const FileSystem& fileSystem, const Accounts& accounts,
                                     const char* localeName)
    : FileServices(fileSystem, accounts), locale_(::newlocale(dateCategories, localeName, nullptr)) {
    if (!locale_)
        locale_.reset(::newlocale(dateCategories, "C", nullptr));
}

std::string PlainFileServices::dateAndTime(Date date) const {
    const std::optional<std::tm> calendar = localTime(date);
    if (!calendar)
        return Value(date).description();
    const std::string text = formatted(*calendar, locale_.get());
    // A locale with another character set gives no usable text.
    if (!text.empty() && isUtf8(text))
        return text;
    return Value(date).description();
}

} // namespace kelvane
