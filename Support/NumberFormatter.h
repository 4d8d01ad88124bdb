#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kelvane {

struct NumberSeparators {
    std::string decimal = ".";
    std::string grouping = ","; // may be empty: then nothing is grouped
};

// Those of the user's locale as the environment names it, whatever the process has set for itself. The
// English ones where the locale is missing from this machine or is "C", which has nothing to offer for
// people.
[[nodiscard]] NumberSeparators userNumberSeparators();

// Writes numbers by a pattern such as "#,##0.00": how many digits a group has, and how many decimals there
// are.
class NumberFormatter {
public:
    explicit NumberFormatter(std::string_view pattern, NumberSeparators separators = userNumberSeparators());

    // Rounded to the nearest; a number exactly between two goes to the even one.
    [[nodiscard]] std::string stringFromNumber(double number) const;

private:
    NumberSeparators separators_;
    std::size_t groupSize_ = 0; // 0: no groups
    int decimals_ = 0;
};

} // namespace kelvane
