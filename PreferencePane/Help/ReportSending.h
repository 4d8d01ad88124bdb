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
    std::string failure;    // why it did not reach the server; empty on success
    std::string missingLog; // why the log is missing; empty when it was sent
    [[nodiscard]] bool isSent() const { return end == BusySheet::End::Finished && failure.empty(); }
};

// Zips the log and sends the report with it, or without it when it cannot be zipped. Blocks until the report
// is sent, has failed or is cancelled; the archive is removed by then.
[[nodiscard]] ReportOutcome sendReport(const IncidentReport& report, const std::string& logPath,
                                       const ReportTools& tools, const BusySheet& busy);

} // namespace kelvane
