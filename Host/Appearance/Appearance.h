#pragma once

namespace kelvane::host {

enum class Appearance { System, Light, Dark };

// The Fusion style with the desktop's own palette, or one of ours: the dark one also where the user wants
// dark windows and the desktop's palette is a light one. Needs the QApplication and comes before the first
// window. What follows the desktop lives until the application goes.
void applyAppearance(Appearance appearance);

} // namespace kelvane::host
