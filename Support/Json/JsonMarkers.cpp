#include "Support/Json/JsonMarkers.h"

#include "Support/Json/Base64.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <chrono>
#include <cmath>
#include <limits>

namespace kelvane {
namespace {

constexpr std::array markers{marker::date, marker::data, marker::float4, marker::real};
constexpr std::string_view nanBitsPrefix = "nan:0x";

template <class Real>
using BitsOf = std::conditional_t<sizeof(Real) == 4, std::uint32_t, std::uint64_t>;

template <class Real>
constexpr auto usualNan = std::bit_cast<BitsOf<Real>>(std::numeric_limits<Real>::quiet_NaN());

template <class Real>
std::string nonFiniteText(Real number) {
    if (std::isinf(number))
        return number > 0 ? "inf" : "-inf";
    const auto bits = std::bit_cast<BitsOf<Real>>(number);
    if (bits == usualNan<Real>)
        return "nan";
    std::array<char, 16> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), bits, 16).ptr;
    return std::string(nanBitsPrefix) + std::string(digits.data(), end);
}

template <class Real>
Value nonFiniteFromText(std::string_view text) {
    if (text == "nan")
        return std::bit_cast<Real>(usualNan<Real>);
    if (text == "inf" || text == "-inf")
        return text.front() == '-' ? -std::numeric_limits<Real>::infinity()
                                   : std::numeric_limits<Real>::infinity();
    if (!text.starts_with(nanBitsPrefix))
        return {};
    text.remove_prefix(nanBitsPrefix.size());
    BitsOf<Real> bits = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), bits, 16);
    const auto number = std::bit_cast<Real>(bits);
    if (error != std::errc() || end != text.data() + text.size() || !std::isnan(number))
        return {};
    return number;
}

Value floatOf(const Value& content) {
    // Halfway between the largest float and the next power of two: smaller numbers are rounded to a float.
    constexpr double aboveAnyFloat = 0x1.ffffffp127;
    if (content.isString())
        return nonFiniteFromText<float>(content.stringValue());
    const double number = content.doubleValue();
    if (!content.isNumber() || std::fabs(number) >= aboveAnyFloat)
        return {};
    return static_cast<float>(number);
}

Value realOf(const Value& content) {
    if (content.isString())
        return nonFiniteFromText<double>(content.stringValue());
    return content.isNumber() ? Value(content.doubleValue()) : Value();
}

Value dateOf(const Value& content) {
    if (content.isNumber() && content.kind() != Value::Kind::Bool)
        return Date{content.doubleValue()};
    const std::optional<Date> date = dateFromText(content.stringValue());
    return date ? Value(*date) : Value();
}

Value dataOf(const Value& content) {
    std::optional<Data> bytes;
    if (content.isString())
        bytes = dataFromBase64(content.stringValue());
    return bytes ? Value(std::move(*bytes)) : Value();
}

// Removes `count` digits and the separator after them from the front of `text`, and returns the number.
std::optional<unsigned> takeNumber(std::string_view& text, std::size_t count, char separator) {
    unsigned number = 0;
    if (text.size() <= count || text[count] != separator)
        return std::nullopt;
    for (const char digit : text.substr(0, count)) {
        if (digit < '0' || digit > '9')
            return std::nullopt;
        number = number * 10 + static_cast<unsigned>(digit - '0');
    }
    text.remove_prefix(count + 1);
    return number;
}

// The fraction of a second in `text`, which is decimals followed by "Z".
std::optional<double> fractionFromText(std::string_view text) {
    const std::string_view digits = text.substr(0, text.size() - 1);
    if (text.empty() || text.back() != 'Z' || digits.empty() ||
        digits.find_first_not_of("0123456789") != std::string_view::npos)
        return std::nullopt;
    const std::string number = "0." + std::string(digits);
    double fraction = 0; // stays 0 when the number is too small for a double
    std::from_chars(number.data(), number.data() + number.size(), fraction);
    return fraction;
}

} // namespace

bool isMarker(const Dictionary& entries) {
    if (entries.empty())
        return false;
    const std::string& key = entries.begin()->first;
    return key == marker::dictionary ||
           (entries.size() == 1 && std::find(markers.begin(), markers.end(), key) != markers.end());
}

Value valueOfMarker(std::string_view key, const Value& content) {
    if (key == marker::date)
        return dateOf(content);
    if (key == marker::data)
        return dataOf(content);
    if (key == marker::float4)
        return floatOf(content);
    if (key == marker::real)
        return realOf(content);
    return content.isDictionary() ? content : Value();
}

std::optional<Date> dateFromText(std::string_view text) {
    namespace chrono = std::chrono;
    const auto year = takeNumber(text, 4, '-');
    const auto month = takeNumber(text, 2, '-');
    const auto day = takeNumber(text, 2, 'T');
    const auto hour = takeNumber(text, 2, ':');
    const auto minute = takeNumber(text, 2, ':');
    const bool isWhole = text.size() == 3;
    const auto second = takeNumber(text, 2, isWhole ? 'Z' : '.');
    const auto fraction = isWhole ? 0 : fractionFromText(text);
    if (!year || !month || !day || !hour || !minute || !second || !fraction)
        return std::nullopt;
    const chrono::year_month_day calendar(chrono::year(static_cast<int>(*year)), chrono::month(*month),
                                          chrono::day(*day));
    if (*year == 0 || !calendar.ok() || *hour > 23 || *minute > 59 || *second > 59)
        return std::nullopt;
    constexpr chrono::sys_days reference = chrono::year(2001) / 1 / 1;
    const chrono::seconds clock = chrono::hours(*hour) + chrono::minutes(*minute) + chrono::seconds(*second);
    const chrono::seconds whole = chrono::sys_days(calendar) - reference + clock;
    return Date{static_cast<double>(whole.count()) + *fraction};
}

std::string textOfNonFinite(float number) {
    return nonFiniteText(number);
}

std::string textOfNonFinite(double number) {
    return nonFiniteText(number);
}

} // namespace kelvane
