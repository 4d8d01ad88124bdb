#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace kelvane {

// A programming error: what is wrong, in which source and on which line. `source` and `line` are the ones by
// which a fault is known to the people who support the product, not those of the file at hand.
class AssertionFailure : public std::logic_error {
public:
    AssertionFailure(const std::string& text, std::string_view source, int line)
        : std::logic_error(text), source_(source), line_(line) {}

    [[nodiscard]] const std::string& source() const { return source_; }
    [[nodiscard]] int line() const { return line_; }

private:
    std::string source_;
    int line_;
};

} // namespace kelvane
