#include "Support/MessageLine.h"

#include "Foundation/Unicode.h"

#include <algorithm>
#include <cctype>

namespace kelvane {
namespace {

constexpr std::string_view codeMark = "\\x";
constexpr std::size_t codeSize = 4; // "\x0a"

bool isCode(std::string_view text) {
    return text.size() >= codeSize && text.starts_with(codeMark) &&
           std::ranges::all_of(text.substr(codeMark.size(), codeSize - codeMark.size()), [](char each) {
               return std::isxdigit(static_cast<unsigned char>(each)) != 0;
           });
}

} // namespace

std::string messageLine(std::string_view text) {
    constexpr std::string_view digits = "0123456789abcdef";
    const std::string whole = textFromPath(text);
    std::string line;
    for (std::size_t at = 0; at < whole.size(); ++at) {
        const auto byte = static_cast<unsigned char>(whole[at]);
        const bool isControl = byte < ' ' || byte == 0x7F;
        if (isControl || isCode(std::string_view(whole).substr(at)))
            line.append(codeMark).append({digits[byte / digits.size()], digits[byte % digits.size()]});
        else
            line += whole[at];
    }
    return line;
}

} // namespace kelvane
