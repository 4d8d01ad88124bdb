#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kelvane {

struct NumberSeparators {
    std::string decimal = ".";
    std::string grouping = ","; // empty: digits are not grouped
};

// Returns the separators of the user's locale, which is read from the environment and not from the process.
// If that locale is not installed, or is "C", which has no grouping separator, returns the English
// separators.
[[nodiscard]] NumberSeparators userNumberSeparators();

// Formats numbers according to a pattern such as "#,##0.00", which determines the size of groups and the
// number of decimals.
class NumberFormatter {
public:
    explicit NumberFormatter(std::string_view pattern, NumberSeparators separators = userNumberSeparators());

    // Rounds to the nearest number, and to the even one if two are equally near.
    [[nodiscard]] std::string stringFromNumber(double number) const;

private:
    NumberSeparators separators_;
    std::size_t groupSize_ = 0; // 0: no groups
    int decimals_ = 0;
};

} // namespace kelvane
