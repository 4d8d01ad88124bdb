#include "LocalDaemon/BackupTrouble.h"

#include <algorithm>

namespace kelvane {
namespace {

struct TroubleRow {
    ResticTrouble trouble;
    ServiceState state;
    const char* severity;
    const char* title;
    const char* advice;
};
constexpr TroubleRow rows[] = {
    {ResticTrouble::NoRepository, ServiceState::NoServer, "warning", "The backup's repository is not there.",
     "If it is on a disk of its own, connect that. If it has been deleted, name another one in the "
     "configuration."},
    {ResticTrouble::Unreachable, ServiceState::NoServer, "warning",
     "The backup's repository cannot be reached.", "The backup goes on when it can."},
    {ResticTrouble::NoNetwork, ServiceState::NoInternet, "warning", "There is no network for the backup.",
     "The backup goes on when there is one."},
    {ResticTrouble::WrongPassword, ServiceState::BadConfiguration, "error",
     "The key of the backup's repository is missing or does not fit.", "Put your copy of the key back at"},
    {ResticTrouble::Locked, ServiceState::Retry, "warning", "Somebody else is at work in the repository.",
     "The backup goes on when they have finished."},
    {ResticTrouble::Failed, ServiceState::BackupFailed, "error", "The backup has failed.",
     "It is tried again. What went wrong:"},
};

const TroubleRow* rowOf(ResticTrouble trouble) {
    const auto* const row = std::ranges::find(rows, trouble, &TroubleRow::trouble);
    return row == std::end(rows) ? nullptr : row;
}

} // namespace

std::optional<ServiceState> serviceStateFor(ResticTrouble trouble) {
    const TroubleRow* const row = rowOf(trouble);
    return row ? std::optional(row->state) : std::nullopt;
}

std::string reasonOf(const ResticOutcome& outcome) {
    return outcome.errors.empty() ? "restic ended without a word: somebody may have stopped it."
                                  : outcome.errors;
}

Alert alertFor(const ResticOutcome& outcome, const RepositoryPlace& place) {
    const TroubleRow* const row = rowOf(outcome.trouble);
    if (!row)
        return {};
    std::string body = row->advice;
    if (outcome.trouble == ResticTrouble::WrongPassword)
        body += " " + place.passwordFile;
    else
        body += "\n" + reasonOf(outcome);
    return {backupAlert, row->severity, row->title, body};
}

} // namespace kelvane
