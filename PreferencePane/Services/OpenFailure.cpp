#include "PreferencePane/Services/OpenFailure.h"

#include "Foundation/Format.h"
#include "PreferencePane/Services/FormTexts.h"
#include "PreferencePane/Services/Sheet.h"
#include "Support/Logging.h"

#include <QPointer>

namespace kelvane {

Opener::Failure openFailureSheet(const PaneServices& prefs, QWidget* view, QObject* context,
                                 const std::string& subject) {
    const std::string message =
        formatTranslated(prefs.text("Open Failed Message", "%@ could not be opened."), subject);
    return [view, context = QPointer<QObject>(context), message = oneLine(message),
            ok = oneLine(prefs.text("OK"))](const std::string& reason) {
        KelvaneCLog("%@", reason);
        if (context)
            openSheet(view, {.message = message, .informative = oneLine(reason), .buttons = {ok}}, context,
                      [](int) {});
    };
}

} // namespace kelvane
