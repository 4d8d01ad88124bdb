#include "PreferencePane/Help/ReportSending.h"

#include "Foundation/Format.h"
#include "PreferencePane/Help/LogArchive.h"
#include "Support/Logging.h"

#include <QDeadlineTimer>
#include <csignal>
#include <poll.h>
#include <utility>

namespace kelvane {
namespace {

constexpr std::chrono::milliseconds cleaningUp(2000); // the time for a program to end after SIGTERM

// Stops zipping that has timed out or was cancelled. The program removes its partial archive; one that does
// not end is killed, so that it does not write on unnoticed.
void stop(ChildProcess& process) {
    process.send(SIGTERM);
    pollfd end{process.descriptor(), POLLIN, 0};
    ::poll(&end, 1, static_cast<int>(cleaningUp.count()));
    if (!process.hasEnded())
        process.kill();
}

struct Zipped {
    BusySheet::End end = BusySheet::End::Finished;
    FileDescriptor archive;
    std::string trouble; // why there is no archive
};

Zipped zipLog(const LogArchive& archive, const std::string& logPath, const ReportTools& tools,
              const BusySheet& busy) {
    Zipped zipped;
    auto process = archive.zip(logPath, zipped.trouble);
    if (!process)
        return zipped;
    const QDeadlineTimer deadline(tools.limits.zipping);
    zipped.end = busy.run([&](std::chrono::milliseconds atMost) {
        pollfd ended{process->descriptor(), POLLIN, 0};
        ::poll(&ended, 1, static_cast<int>(atMost.count()));
        return process->hasEnded() || deadline.hasExpired();
    });
    if (!process->hasEnded()) {
        zipped.trouble = tools.zipProgram + " takes too long";
        stop(*process);
        return zipped;
    }
    zipped.archive = archive.open();
    if (!zipped.archive)
        zipped.trouble = formatText("%@ exited with status %d without an archive of %@", tools.zipProgram,
                                    process->exitStatus(), logPath);
    return zipped;
}

} // namespace

ReportOutcome sendReport(const IncidentReport& report, const std::string& logPath, const ReportTools& tools,
                         const BusySheet& busy) {
    const LogArchive archive(tools.zipProgram);
    Zipped zipped = zipLog(archive, logPath, tools, busy);
    if (zipped.end != BusySheet::End::Finished)
        return {zipped.end, {}, {}};
    if (!zipped.trouble.empty())
        KelvaneCLog("Sending the report without the log: %@", zipped.trouble);
    ReportTransfer transfer(report, std::move(zipped.archive), tools.limits);
    BusySheet::End end = busy.run([&](std::chrono::milliseconds atMost) { return transfer.step(atMost); });
    if (end == BusySheet::End::Cancelled && transfer.isAnswered())
        end = BusySheet::End::Finished; // otherwise the user would be asked to send it again
    return {end, end == BusySheet::End::Finished ? transfer.failure() : std::string(), zipped.trouble};
}

} // namespace kelvane
