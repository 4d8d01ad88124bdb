#include "PreferencePane/Status/StatusFigures.h"

#include "Foundation/Format.h"
#include "PreferencePane/Status/StatusModes.h"
#include "PreferencePane/Status/StatusTexts.h"
#include "Support/FileSizeFormatter.h"

#include <algorithm>

namespace kelvane {
namespace {

constexpr std::uint32_t smallestQuota = 2; // in gigabytes

__extension__ using Wide = unsigned __int128;

std::string amountText(const BackupAmount& amount, const Bundle& bundle) {
    const auto size = FileSizeFormatter::sharedFileSizeAbbrevFormatter().stringFromNumber(amount.size);
    return formatTranslated(statusText(bundle, StatusText::FileStatus), size.value_or(std::string()),
                            static_cast<std::int32_t>(amount.fileCount));
}

void replaceAll(std::string& text, std::string_view marker, const std::string& replacement) {
    for (std::size_t at = 0; (at = text.find(marker, at)) != std::string::npos; at += replacement.size())
        text.replace(at, marker.size(), replacement);
}

} // namespace

AmountTexts amountTexts(const BackupAmount& backedUp, const BackupAmount& pending, const Bundle& bundle) {
    const std::string unknown = statusText(bundle, StatusText::Unavailable);
    return {backedUp.isSizeKnown && pending.isSizeKnown ? amountText(backedUp, bundle) : unknown,
            backedUp.isCountKnown && pending.isCountKnown ? amountText(pending, bundle) : unknown};
}

std::int32_t percentDone(std::uint64_t backedUpSize, std::uint64_t pendingSize) {
    if (pendingSize >= ~backedUpSize) // the divisor would overflow
        return 100;
    const Wide percent = (Wide{backedUpSize} * 100 + 100) / (backedUpSize + pendingSize + 1);
    return static_cast<std::int32_t>(std::min<Wide>(percent, 100));
}

std::string statusLine(ServiceState serviceState, std::uint32_t quotaGB, const Bundle& bundle) {
    std::string text = stringForKelvaneServiceState(serviceState, bundle);
    if (text == statusText(bundle, StatusText::BackupFailed))
        return statusText(bundle, StatusText::TemporarilyUnavailable);
    if (serviceState == ServiceState::OverQuota && text == statusText(bundle, StatusText::AccountOverQuota))
        return formatTranslated(statusText(bundle, StatusText::StoppedOverQuota),
                                quotaGB == 0 ? smallestQuota : quotaGB);
    return text;
}

std::string modeSentence(DaemonMode mode, std::uint32_t pausedMinutes, const Bundle& bundle) {
    switch (mode) {
    case DaemonMode::Enabled: return statusText(bundle, StatusText::ModeEnabled);
    case DaemonMode::Paused:
        return formatTranslated(statusText(bundle, StatusText::ModePaused), hoursLeft(pausedMinutes));
    case DaemonMode::Recover: return statusText(bundle, StatusText::ModeRecover);
    case DaemonMode::Disabled: break;
    }
    return statusText(bundle, StatusText::ModeDisabled);
}

std::string webAddress(const std::string& page, const AccountData& account) {
    if (page.empty())
        return {};
    std::string address = "http://" + page;
    replaceAll(address, "%1$@", account.serverURL);
    replaceAll(address, "%2$@", std::to_string(account.computerNumber.uint32Value()));
    replaceAll(address, "%3$@", account.userEmail);
    return address;
}

} // namespace kelvane
