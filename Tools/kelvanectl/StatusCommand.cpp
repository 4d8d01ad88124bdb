#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/JsonText.h"
#include "Tools/kelvanectl/Session.h"
#include "Tools/kelvanectl/StatusReport.h"
#include "Tools/kelvanectl/Terminal.h"

#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

// None when the daemon does not answer to the end.
std::optional<StatusReport> liveReport(Session& session) {
    if (!session.connect())
        return std::nullopt;
    session.state().updateDaemonState();
    StatusReport report = statusReport(session.state(), session.bundle(), session.daemonPath());
    return session.confirm() ? std::optional(std::move(report)) : std::nullopt;
}

} // namespace

ExitStatus runStatus(CommandLine& line) {
    line.parse();
    Session session(line);
    std::optional<StatusReport> report = liveReport(session);
    if (!report) {
        complain(ExitStatus::Unreachable, session.failure());
        session.end();
        report = statusReport(session.state(), session.bundle(), session.daemonPath());
    }
    const bool isLive = report->connected;
    const ExitStatus written =
        finishWith(line.settings().json ? jsonText(jsonOf(*report), true) : textOf(*report));
    return isLive ? written : ExitStatus::Unreachable;
}

} // namespace kelvane::ctl
