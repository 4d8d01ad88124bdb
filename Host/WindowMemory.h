#pragma once

class QWidget;

namespace kelvane::host {

// Saves and restores the window's geometry in "kelvane-settings.conf" in the user's configuration folder. A
// missing or damaged file is ignored; a failed write is reported on standard error.
void restoreWindow(QWidget& window);
void rememberWindow(const QWidget& window);

} // namespace kelvane::host
