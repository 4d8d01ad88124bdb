#pragma once

#include "PreferencePane/Help/IncidentReport.h"
#include "PreferencePane/Help/ReportTransfer.h"
#include "PreferencePane/Services/BusySheet.h"

#include <string>

namespace kelvane {

struct ReportTools {
    std::string zipProgram = "/usr/bin/zip";
    ReportLimits limits;
};

struct ReportOutcome {
    BusySheet::End end = BusySheet::End::Finished;
    std::string failure;    // why it did not get to the server, if so
    std::string missingLog; // why it went without the log, if so
    [[nodiscard]] bool isSent() const { return end == BusySheet::End::Finished && failure.empty(); }
};

// Zips the log and sends the report with it, or without where it cannot be zipped. Over when it returns; the
// archive has gone then, too.
[[nodiscard]] ReportOutcome sendReport(const IncidentReport& report, const std::string& logPath,
                                       const ReportTools& tools, const BusySheet& busy);

} // namespace kelvane
