#pragma once

#include "Foundation/Value.h"
#include "Platform/Bundle.h"
#include "PreferencePane/Link/DaemonMode.h"
#include "Support/ServiceStates.h"

#include <cstdint>
#include <string>

namespace kelvane {

// What the Status tab makes of what the daemon says. Pure but for the bundle's texts.

// A size with its count of files.
struct BackupAmount {
    std::uint64_t size = 0; // bytes
    std::uint32_t fileCount = 0;
    bool isSizeKnown = false;
    bool isCountKnown = false;
};

struct AmountTexts {
    std::string contains;
    std::string awaiting;
};
// The first is told when both sizes are known, the second when both counts are: a daemon that is still
// counting files knows the sizes, and one that is still adding up knows the counts.
[[nodiscard]] AmountTexts amountTexts(const BackupAmount& backedUp, const BackupAmount& pending,
                                      const Bundle& bundle);

// Of what is or will be in the backup, 0 to 100. 100 for an empty backup, and for sizes whose sum no longer
// fits.
[[nodiscard]] std::int32_t percentDone(std::uint64_t backedUpSize, std::uint64_t pendingSize);

// `quotaGB` 0 stands for the limit of those accounts that do not name one.
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

// The address of a page from its host and path: every "%1$@" becomes the server, "%2$@" the computer's
// number,
// "%3$@" the e-mail, one after the other. Empty for no page.
[[nodiscard]] std::string webAddress(const std::string& page, const AccountData& account);

} // namespace kelvane
