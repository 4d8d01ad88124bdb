#pragma once

#include <QString>
#include <string>

namespace kelvane {

// Text for display: a carriage return becomes a line break.
[[nodiscard]] inline QString screenText(const std::string& text) {
    return QString::fromStdString(text).replace('\r', '\n');
}

} // namespace kelvane
