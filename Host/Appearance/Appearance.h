#pragma once

namespace kelvane::host {

enum class Appearance { System, Light, Dark };

// Sets the Fusion style with the desktop's palette or one of ours: the dark palette also when the user
// prefers dark windows and the desktop's palette is light. Needs the QApplication; call it before the first
// window. The connection to the desktop lives as long as the application.
void applyAppearance(Appearance appearance);

} // namespace kelvane::host
