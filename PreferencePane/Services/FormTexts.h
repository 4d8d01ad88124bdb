#pragma once

#include "Platform/Bundle.h"

#include <QString>
#include <string>

class QWidget;

namespace kelvane {

// Gives a form the bundle's texts. What a form says in English, captions and the names that screen readers
// tell, is the key of its text; what it leaves empty, the place of a value, stays so.
void localizeForm(QWidget& form, const Bundle& bundle);

// A name for the screen: what would break its line or turn it around, which file names may hold, shows as the
// replacement character.
[[nodiscard]] QString oneLine(const std::string& text);

} // namespace kelvane
