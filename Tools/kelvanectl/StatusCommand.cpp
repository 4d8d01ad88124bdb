#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/JsonText.h"
#include "Tools/kelvanectl/Session.h"
#include "Tools/kelvanectl/StatusReport.h"
#include "Tools/kelvanectl/Terminal.h"

#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

bool asksAccount(Session& session) {
    const auto daemon = session.state().proxy();
    if (!daemon)
        return false;
    static_cast<void>(daemon->call<"userEmail">());
    static_cast<void>(daemon->call<"computerNumber">());
    static_cast<void>(daemon->call<"serverURL">());
    static_cast<void>(daemon->call<"stringValueForProfileKey:">(std::string("SkinId")));
    return true;
}

// None when the daemon does not answer to the end.
std::optional<StatusReport> liveReport(Session& session) {
    // The state keeps what the daemon answers for times without it. So what it would keep is asked for
    // nothing first: a daemon that falls silent in the middle of it must not make it keep nothing.
    if (!session.connect() || !asksAccount(session) || !session.confirm())
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
