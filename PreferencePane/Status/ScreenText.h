#pragma once

#include <QString>
#include <string>

namespace kelvane {

// For the screen: a carriage return is a line break.
[[nodiscard]] inline QString screenText(const std::string& text) {
    return QString::fromStdString(text).replace('\r', '\n');
}

} // namespace kelvane
