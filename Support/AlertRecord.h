#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// An alert that the daemon has sent, decoded for display. The three styles must look different.
struct AlertRecord {
    enum class Style { Critical, Warning, Informational };

    Style style = Style::Informational;
    std::string messageText;     // the title
    std::string informativeText; // the body
};

// Splits an alert string into its fields, which stay escaped. Empty fields are kept; an empty string has one.
[[nodiscard]] std::vector<std::string> alertStringComponents(std::string_view alertString);

// Returns nothing unless there are six fields and the last two, title and body, are not empty.
[[nodiscard]] std::optional<AlertRecord>
alertWithKelvaneStringComponents(std::span<const std::string> components);

} // namespace kelvane
