#include "PreferencePane/Help/ReportSending.h"

#include "PreferencePane/Help/LogArchive.h"
#include "Support/Logging.h"

#include <QDeadlineTimer>
#include <poll.h>

namespace kelvane {
namespace {

constexpr std::chrono::seconds cleaningUp(2); // for a program that was asked to end

// False when it does not end within the time, or the application does.
bool waitForEnd(ChildProcess& process, std::chrono::milliseconds limit, const BusySheet& busy) {
    const QDeadlineTimer deadline(limit);
    const bool isOver = busy.run([&](std::chrono::milliseconds atMost) {
        if (process.hasEnded() || deadline.hasExpired())
            return true;
        pollfd end{process.descriptor(), POLLIN, 0};
        ::poll(&end, 1, static_cast<int>(atMost.count()));
        return false;
    });
    return isOver && process.hasEnded();
}

// None where there is nothing to send.
FileDescriptor zipLog(const LogArchive& archive, const std::string& logPath, const ReportTools& tools,
                      const BusySheet& busy) {
    auto process = archive.zip(logPath);
    if (!process)
        return {};
    if (!waitForEnd(*process, tools.limits.zipping, busy)) {
        KelvaneCLog("The report goes without a log: %@ was not waited for any longer", tools.zipProgram);
        process->terminate();
        // It removes what it has begun. One that does not end would write on where nobody looks.
        if (!waitForEnd(*process, cleaningUp, busy))
            process->kill();
        return {};
    }
    FileDescriptor zipped = archive.open();
    if (!zipped)
        KelvaneCLog("The report goes without a log: %@ ended with status %d and made no archive of %@",
                    tools.zipProgram, process->exitStatus(), logPath);
    return zipped;
}

} // namespace

void sendReport(const IncidentReport& report, const std::string& logPath, const ReportTools& tools,
                const BusySheet& busy) {
    const LogArchive archive(tools.zipProgram);
    ReportTransfer transfer(report, zipLog(archive, logPath, tools, busy), tools.limits);
    static_cast<void>(busy.run([&](std::chrono::milliseconds atMost) { return transfer.step(atMost); }));
}

} // namespace kelvane
