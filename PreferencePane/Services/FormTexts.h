#pragma once

#include "Platform/Bundle.h"

#include <QString>
#include <string>

class QWidget;

namespace kelvane {

// Translates a form with the bundle's texts. The form's English texts, captions and accessible names, are the
// keys; empty texts, which stand for values, stay empty.
void localizeForm(QWidget& form, const Bundle& bundle);

// A name for display: characters that break the line or change the text direction, which file names may
// contain, become the replacement character.
[[nodiscard]] QString oneLine(const std::string& text);

} // namespace kelvane
