#pragma once

class QWidget;

namespace kelvane::host {

// The window's size and place from one run to the next, in "kelvane-settings.conf" of the user's
// configuration folder. A file that is missing or damaged changes nothing; one that cannot be written is
// reported on standard error.
void restoreWindow(QWidget& window);
void rememberWindow(const QWidget& window);

} // namespace kelvane::host
