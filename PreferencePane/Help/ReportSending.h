#pragma once

#include "PreferencePane/Help/BusySheet.h"
#include "PreferencePane/Help/IncidentReport.h"
#include "PreferencePane/Help/ReportTransfer.h"

#include <string>

namespace kelvane {

struct ReportTools {
    std::string zipProgram = "/usr/bin/zip";
    ReportLimits limits;
};

// Zips the log and sends the report with it, or without where it cannot be zipped. Over when it returns; the
// archive has gone then, too.
void sendReport(const IncidentReport& report, const std::string& logPath, const ReportTools& tools,
                const BusySheet& busy);

} // namespace kelvane
