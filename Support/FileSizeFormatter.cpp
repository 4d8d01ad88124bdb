#include "Support/FileSizeFormatter.h"

#include "Platform/Bundle.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace kelvane {
namespace {

constexpr auto unitKeys = std::to_array<std::string_view>({"bytes", "KB", "MB", "GB", "TB"});
constexpr auto lastUnit = unitKeys.size() - 1;

using Units = std::array<std::string, unitKeys.size()>;

Units& units() {
    static Units table = [] {
        Units english;
        std::ranges::copy(unitKeys, english.begin());
        return english;
    }();
    return table;
}

bool isCountOf64Bits(const Value& number) {
    const std::optional<Integer> integer = number.integer();
    return integer && integer->width == 8 && integer->isSigned;
}

// `Real` is the precision in which a count is scaled. Counts too large for the last unit are shown in it.
template <class Real>
std::string abbreviated(Real count, const NumberFormatter& base) {
    std::size_t unit = 0;
    // Each unit is 1024 of the previous one, but is already used above 1000 of these: 1001 bytes are shown as
    // 0.98 KB.
    while (count > 1000 && unit < lastUnit) {
        count *= Real{0.0009765625};
        ++unit;
    }
    return base.stringFromNumber(static_cast<double>(count)) + ' ' + units()[unit];
}

FileSizeFormatter sharedFormatter(std::string_view pattern, bool isAbbreviated) {
    FileSizeFormatter formatter{NumberFormatter(pattern)};
    formatter.setAbbreviated(isAbbreviated);
    return formatter;
}

} // namespace

void FileSizeFormatter::initializeUsingBundle(const Bundle& bundle) {
    for (std::size_t i = 0; i < unitKeys.size(); ++i)
        units()[i] = bundle.localizedString(unitKeys[i], unitKeys[i]);
}

const FileSizeFormatter& FileSizeFormatter::sharedFileSizeFormatter() {
    static const FileSizeFormatter formatter = sharedFormatter("#,##0", false);
    return formatter;
}

const FileSizeFormatter& FileSizeFormatter::sharedFileSizeAbbrevFormatter() {
    static const FileSizeFormatter formatter = sharedFormatter("#,##0.00", true);
    return formatter;
}

std::optional<std::string> FileSizeFormatter::stringForObjectValue(const Value& value) const {
    if (!value.isNumber())
        return std::nullopt;
    const bool isWide = isCountOf64Bits(value);
    const std::uint64_t count = isWide ? value.uint64Value() : value.uint32Value();
    if (!abbreviated_)
        return std::to_string(count) + ' ' + units()[0];
    return isWide ? abbreviated(static_cast<double>(count), base_)
                  : abbreviated(static_cast<float>(count), base_);
}

} // namespace kelvane
