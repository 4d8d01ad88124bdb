#pragma once

#include "Foundation/Value.h"
#include "Platform/Bundle.h"
#include "PreferencePane/Link/DaemonMode.h"
#include "Support/ServiceStates.h"

#include <cstdint>
#include <string>

namespace kelvane {

// Converts the daemon's figures to the Status tab's texts. Pure functions except for reading the bundle's
// texts.

// A size and a number of files.
struct BackupAmount {
    std::uint64_t size = 0; // in bytes
    std::uint32_t fileCount = 0;
    bool isSizeKnown = false;
    bool isCountKnown = false;
};

struct AmountTexts {
    std::string contains;
    std::string awaiting;
};
// The first text gives an amount when both sizes are known, the second when both counts are; otherwise it
// says that there is no information. A daemon that is still counting files knows the sizes, and one that is
// still adding up sizes knows the counts.
[[nodiscard]] AmountTexts amountTexts(const BackupAmount& backedUp, const BackupAmount& pending,
                                      const Bundle& bundle);

// Percentage of the total size that is backed up. 100 for an empty backup, and for sizes whose sum overflows.
[[nodiscard]] std::int32_t percentDone(std::uint64_t backedUpSize, std::uint64_t pendingSize);

// `quotaGB` 0 stands for the limit of accounts that do not report one.
[[nodiscard]] std::string statusLine(ServiceState serviceState, std::uint32_t quotaGB, const Bundle& bundle);

[[nodiscard]] std::string modeSentence(DaemonMode mode, std::uint32_t pausedMinutes, const Bundle& bundle);

struct AccountData {
    std::string userEmail;
    std::string serverURL;
    Value computerNumber;

    [[nodiscard]] bool isComplete() const {
        return !userEmail.empty() && !serverURL.empty() && computerNumber.int32Value() > 0;
    }
};

// The address of a page from its host and path: every "%1$@" is replaced by the server, then every "%2$@" by
// the computer's number and every "%3$@" by the e-mail. Empty for an empty page.
[[nodiscard]] std::string webAddress(const std::string& page, const AccountData& account);

} // namespace kelvane
