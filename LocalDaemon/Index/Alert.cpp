#include "LocalDaemon/Index/Alert.h"

#include "Common/StandingAlert.h"

#include <string_view>

namespace kelvane {
namespace {

// Written without the closing semicolon, since panes look for it in this form.
constexpr std::string_view escapedSeparator = "&#124";

std::string escaped(std::string_view text) {
    std::string result;
    for (const char each : text)
        if (each == '|')
            result += escapedSeparator;
        else
            result += each;
    return result;
}

} // namespace

Alert alertForInternalError(const std::string& reason) {
    return {.kind = "internal_error",
            .severity = "error",
            .title = "The backup daemon had an internal error.",
            .body = "It is still running, but an operation may be incomplete: " + reason +
                    ". See the log for details.",
            .actions = {std::string(dismissAction)}};
}

std::string alertString(const Alert& alert) {
    return escaped(alert.kind) + '|' + escaped(alert.severity) + "|||" + escaped(alert.title) + '|' +
           escaped(alert.body);
}

} // namespace kelvane
