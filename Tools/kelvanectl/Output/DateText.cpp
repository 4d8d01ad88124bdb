#include "Tools/kelvanectl/Output/DateText.h"

#include "Platform/Files/FileServices.h"

#include <array>
#include <cstdlib>
#include <ctime>
#include <string_view>

namespace kelvane::ctl {
namespace {

constexpr double secondsFrom1970To2001 = 978307200;
constexpr double latestTime = 1e15;

std::string_view nameOfLocale() {
    for (const char* const variable : {"LC_ALL", "LC_TIME", "LANG"})
        if (const char* const name = std::getenv(variable); name != nullptr && *name != '\0')
            return name;
    return "C";
}

bool hasOwnFormat() {
    const std::string_view name = nameOfLocale();
    if (name == "C" || name == "POSIX" || name.starts_with("C."))
        return false;
    const locale_t locale = ::newlocale(LC_TIME_MASK, "", nullptr);
    if (locale)
        ::freelocale(locale);
    return locale != nullptr;
}

} // namespace

std::string dateText(Date date) {
    static const bool isInLocale = hasOwnFormat();
    static const LocalFileSystem disks;
    static const SystemAccounts accounts;
    static const PlainFileServices services(disks, accounts);
    const double seconds = date.secondsSinceReference + secondsFrom1970To2001;
    std::tm calendar{};
    const auto time = static_cast<std::time_t>(seconds > -latestTime && seconds < latestTime ? seconds : 0);
    if (isInLocale || time == 0 || !::localtime_r(&time, &calendar))
        return services.dateAndTime(date);
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M", &calendar);
    return text.data();
}

} // namespace kelvane::ctl
