#include "Support/NumberFormatter.h"

#include "Foundation/Unicode.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <langinfo.h>
#include <limits>
#include <locale.h>
#include <utility>

namespace kelvane {
namespace {

// All digits of the largest number, its sign, its point and `mostDecimals` decimals.
constexpr std::size_t longestNumber = std::numeric_limits<double>::max_exponent10 + 64;
constexpr std::size_t mostDecimals = 32;

// Uses `fallback` for a separator that is not UTF-8, such as the no-break space of a Latin-1 locale.
std::string separatorText(const char* bytes, std::string_view fallback) {
    return isUtf8(bytes) ? std::string(bytes) : std::string(fallback);
}

} // namespace

NumberSeparators userNumberSeparators() {
    const locale_t locale = ::newlocale(LC_NUMERIC_MASK, "", nullptr);
    if (!locale)
        return {};
    const NumberSeparators separators{separatorText(::nl_langinfo_l(RADIXCHAR, locale), "."),
                                      separatorText(::nl_langinfo_l(THOUSEP, locale), " ")};
    ::freelocale(locale);
    const bool isBare = separators.decimal == "." && separators.grouping.empty();
    return isBare ? NumberSeparators{} : separators;
}

NumberFormatter::NumberFormatter(std::string_view pattern, NumberSeparators separators)
    : separators_(std::move(separators)) {
    const std::string_view whole = pattern.substr(0, pattern.find('.'));
    if (const std::size_t comma = whole.rfind(','); comma != std::string_view::npos)
        groupSize_ = whole.size() - comma - 1;
    if (whole.size() < pattern.size())
        decimals_ = static_cast<int>(std::min(pattern.size() - whole.size() - 1, mostDecimals));
}

std::string NumberFormatter::stringFromNumber(double number) const {
    std::array<char, longestNumber> buffer{};
    const auto written = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number,
                                       std::chars_format::fixed, decimals_);
    const std::string_view plain(buffer.data(), static_cast<std::size_t>(written.ptr - buffer.data()));
    if (!std::isfinite(number))
        return std::string(plain);
    const std::string_view whole = plain.substr(0, plain.find('.'));

    std::string text;
    for (std::size_t i = 0; i < whole.size(); ++i) {
        const std::size_t digitsLeft = whole.size() - i;
        if (groupSize_ > 0 && digitsLeft % groupSize_ == 0 && i > 0 && whole[i - 1] != '-')
            text += separators_.grouping;
        text += whole[i];
    }
    if (decimals_ > 0)
        text.append(separators_.decimal).append(plain.substr(whole.size() + 1));
    return text;
}

} // namespace kelvane
