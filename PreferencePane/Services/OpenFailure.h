#pragma once

#include "Platform/Desktop/Opener.h"
#include "PreferencePane/Services/PaneServices.h"

#include <QWidget>

namespace kelvane {

// For what an `Opener` is asked for: a sheet of the view that says what could not be opened, and why. Nothing
// once `context` has gone.
[[nodiscard]] Opener::Failure openFailureSheet(const PaneServices& prefs, QWidget* view, QObject* context,
                                               const std::string& subject);

} // namespace kelvane
