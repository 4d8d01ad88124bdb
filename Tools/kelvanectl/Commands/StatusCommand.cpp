#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/Connection/Session.h"
#include "Tools/kelvanectl/Output/JsonText.h"
#include "Tools/kelvanectl/Output/StatusReport.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

// Returns none when the connection is lost before all answers have arrived.
std::optional<StatusReport> liveReport(Session& session) {
    if (!session.connect())
        return std::nullopt;
    session.state().updateDaemonState();
    StatusReport report = statusReport(session.state(), session.bundle(), session.daemonPath());
    return session.confirm() ? std::optional(std::move(report)) : std::nullopt;
}

ExitStatus showStatus(const CommandLine& line) {
    Session session(line);
    std::optional<StatusReport> report = liveReport(session);
    if (!report) {
        complain(ExitStatus::Failed, session.failure());
        session.end();
        report = statusReport(session.state(), session.bundle(), session.daemonPath());
    }
    const bool isLive = report->connected;
    const ExitStatus written =
        finishWith(line.settings().json ? jsonText(jsonOf(*report), true) : textOf(*report));
    return isLive ? written : ExitStatus::Failed;
}

} // namespace

Action declareStatus(CLI::App&) {
    return showStatus;
}

} // namespace kelvane::ctl
