#pragma once

#include "Platform/Bundle.h"

class QWidget;

namespace kelvane {

// Gives a form the bundle's texts. What a form says in English, captions and the names that screen readers
// tell, is the key of its text; what it leaves empty, the place of a value, stays so.
void localizeForm(QWidget& form, const Bundle& bundle);

} // namespace kelvane
