#include "PreferencePane/Help/ReportSending.h"

#include "PreferencePane/Help/LogArchive.h"
#include "Support/Logging.h"

#include <QDeadlineTimer>
#include <poll.h>
#include <utility>

namespace kelvane {
namespace {

constexpr std::chrono::milliseconds cleaningUp(2000); // for a program that was asked to end

// Zipping that is not waited for any longer. The program removes what it has begun; one that does not end
// would write on where nobody looks.
void stop(ChildProcess& process) {
    process.terminate();
    pollfd end{process.descriptor(), POLLIN, 0};
    ::poll(&end, 1, static_cast<int>(cleaningUp.count()));
    if (!process.hasEnded())
        process.kill();
}

// Into `zipped`, which stays empty where there is nothing to send.
BusySheet::End zipLog(const LogArchive& archive, const std::string& logPath, const ReportTools& tools,
                      const BusySheet& busy, FileDescriptor& zipped) {
    auto process = archive.zip(logPath);
    if (!process)
        return BusySheet::End::Finished;
    const QDeadlineTimer deadline(tools.limits.zipping);
    const BusySheet::End end = busy.run([&](std::chrono::milliseconds atMost) {
        pollfd ended{process->descriptor(), POLLIN, 0};
        ::poll(&ended, 1, static_cast<int>(atMost.count()));
        return process->hasEnded() || deadline.hasExpired();
    });
    if (!process->hasEnded()) {
        KelvaneCLog("The report goes without a log: %@ was not waited for any longer", tools.zipProgram);
        stop(*process);
        return end;
    }
    zipped = archive.open();
    if (!zipped)
        KelvaneCLog("The report goes without a log: %@ ended with status %d and made no archive of %@",
                    tools.zipProgram, process->exitStatus(), logPath);
    return end;
}

} // namespace

ReportOutcome sendReport(const IncidentReport& report, const std::string& logPath, const ReportTools& tools,
                         const BusySheet& busy) {
    const LogArchive archive(tools.zipProgram);
    FileDescriptor zipped;
    if (const BusySheet::End end = zipLog(archive, logPath, tools, busy, zipped);
        end != BusySheet::End::Finished)
        return {end, {}};
    ReportTransfer transfer(report, std::move(zipped), tools.limits);
    const BusySheet::End end =
        busy.run([&](std::chrono::milliseconds atMost) { return transfer.step(atMost); });
    return {end, end == BusySheet::End::Finished ? transfer.failure() : std::string()};
}

} // namespace kelvane
