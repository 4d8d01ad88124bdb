#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// An alert that the daemon sent, ready to be shown. Whoever shows it keeps the three styles apart.
struct AlertRecord {
    enum class Style { Critical, Warning, Informational };

    Style style = Style::Informational;
    std::string messageText;     // the title
    std::string informativeText; // the body
};

// The fields of an alert string, still escaped; empty ones are kept, and an empty string has one.
[[nodiscard]] std::vector<std::string> alertStringComponents(std::string_view alertString);

// None unless there are six fields and the last two, title and body, both hold something.
[[nodiscard]] std::optional<AlertRecord>
alertWithKelvaneStringComponents(std::span<const std::string> components);

} // namespace kelvane
