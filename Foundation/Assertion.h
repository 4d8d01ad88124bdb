#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace kelvane {

// Thrown for a programming error. `source` and `line` are the names under which support staff know the
// fault; they are not those of the C++ file that throws it.
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
