#include "LocalDaemon/State/PaneValues.h"

#include "Foundation/Unicode.h"
#include "Platform/Files/FileSystem.h"
#include "Support/Logging.h"

namespace kelvane {

std::string textForPanes(const std::string& text) {
    if (isUtf8(text))
        return text;
    logWarning("A text is not UTF-8; its invalid bytes are replaced: %@", textFromPath(text));
    return textFromPath(text);
}

Date dateForPanes(std::chrono::system_clock::time_point time) {
    using namespace std::chrono;
    const auto seconds = floor<std::chrono::seconds>(time);
    return dateFromTime(seconds.time_since_epoch().count(),
                        static_cast<std::uint32_t>(duration_cast<nanoseconds>(time - seconds).count()));
}

} // namespace kelvane
