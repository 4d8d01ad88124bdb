#pragma once

#include "Platform/Desktop/Opener.h"
#include "PreferencePane/Services/PaneServices.h"

#include <QWidget>

namespace kelvane {

// The failure handler for an `Opener`: shows a sheet on the view that says what could not be opened, and why.
// Does nothing after `context` is destroyed.
[[nodiscard]] Opener::Failure openFailureSheet(const PaneServices& prefs, QWidget* view, QObject* context,
                                               const std::string& subject);

} // namespace kelvane
