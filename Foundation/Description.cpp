#include "Foundation/Description.h"

#include "Foundation/Value.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace kelvane {
namespace {

constexpr int deepestLevel = 64;
// In characters. Containers are truncated beyond it: a kilobyte of shared containers can expand to a text
// that exhausts the memory.
constexpr std::size_t longestText = 1U << 20U;

constexpr auto referenceDay = std::chrono::sys_days{std::chrono::year{2001} / 1 / 1};

void appendValue(std::string& text, const Value& value, int level, bool quoted);

template <class Number>
void appendReal(std::string& text, Number number) {
    std::array<char, 64> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number);
    text.append(buffer.data(), result.ptr);
}

void appendData(std::string& text, const Data& bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    text += '<';
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4U];
        text += digits[byte & 15U];
    }
    text += '>';
}

// Appends "..." to `text` when it returns true.
bool isTooLong(std::string& text) {
    if (text.size() < longestText)
        return false;
    text += "...";
    return true;
}

void appendArray(std::string& text, const Array& items, int level) {
    text += '(';
    bool first = true;
    for (const Value& item : items) {
        text += first ? "" : ", ";
        first = false;
        if (isTooLong(text))
            break;
        appendValue(text, item, level, true);
    }
    text += ')';
}

void appendDictionary(std::string& text, const Dictionary& entries, int level) {
    text += '{';
    for (const auto& [key, value] : entries) {
        if (isTooLong(text))
            break;
        text += key + " = ";
        appendValue(text, value, level, true);
        text += "; ";
    }
    if (text.back() == ' ')
        text.pop_back();
    text += '}';
}

void appendValue(std::string& text, const Value& value, int level, bool quoted) {
    if (level == deepestLevel) {
        text += "...";
        return;
    }
    switch (value.kind()) {
    case Value::Kind::Absent: text += "(null)"; break;
    case Value::Kind::Bool: text += value.boolValue() ? '1' : '0'; break;
    case Value::Kind::Integer:
        text += value.integer()->isSigned ? std::to_string(value.int64Value())
                                          : std::to_string(value.uint64Value());
        break;
    case Value::Kind::Float: appendReal(text, value.floatValue()); break;
    case Value::Kind::Double: appendReal(text, value.doubleValue()); break;
    case Value::Kind::String: text += quoted ? '"' + value.stringValue() + '"' : value.stringValue(); break;
    case Value::Kind::Data: appendData(text, value.dataValue()); break;
    case Value::Kind::Date: {
        const std::string date = iso8601(value.dateValue());
        if (date.empty())
            appendReal(text, value.dateValue().secondsSinceReference);
        text += date;
        break;
    }
    case Value::Kind::Array: appendArray(text, value.array(), level + 1); break;
    case Value::Kind::Dictionary: appendDictionary(text, value.dictionary(), level + 1); break;
    }
}

// The decimals of the second after the point and including it; empty for a whole second.
std::string decimals(double fraction) {
    if (fraction == 0)
        return {};
    std::array<char, 512> buffer{};
    const auto result =
        std::to_chars(buffer.data(), buffer.data() + buffer.size(), fraction, std::chars_format::fixed);
    return {buffer.data() + 1, result.ptr};
}

} // namespace

std::string describe(const Value& value) {
    std::string text;
    appendValue(text, value, 0, false);
    return text;
}

std::string iso8601(Date date) {
    using namespace std::chrono;
    double whole = std::floor(date.secondsSinceReference);
    double fraction = date.secondsSinceReference - whole;
    if (fraction == 1) { // the date is just below a whole second, and the difference was rounded
        whole += 1;
        fraction = 0;
    }
    constexpr double earliest = duration<double>(sys_days{year{1} / 1 / 1} - referenceDay).count();
    constexpr double latest = duration<double>(sys_days{year{10000} / 1 / 1} - referenceDay).count();
    if (!(whole >= earliest && whole < latest))
        return {};
    const sys_seconds moment = referenceDay + seconds(static_cast<std::int64_t>(whole));
    const auto day = floor<days>(moment);
    const year_month_day calendar{day};
    const hh_mm_ss clock{moment - day};
    std::array<char, 80> text{};
    const int length =
        std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d",
                      static_cast<int>(calendar.year()), static_cast<unsigned>(calendar.month()),
                      static_cast<unsigned>(calendar.day()), static_cast<int>(clock.hours().count()),
                      static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()));
    return std::string(text.data(), static_cast<std::size_t>(length)) + decimals(fraction) + "Z";
}

} // namespace kelvane
