#include "LocalDaemon/Backup/BackupTrouble.h"

#include <algorithm>
#include <unistd.h>

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
    {ResticTrouble::NoRepository, ServiceState::NoServer, "warning", "The repository was not found.",
     "If it is on a separate disk, connect that. Only if it was deleted, create a new one in its "
     "place, or set another location in the configuration."},
    {ResticTrouble::DiskAway, ServiceState::NoServer, "warning", "The backup disk is not mounted.",
     "Connect it, and the backup continues. Only if there is no such disk, create a new repository in the "
     "folder itself."},
    {ResticTrouble::Occupied, ServiceState::NoServer, "error",
     "The folder of the repository contains other files, or an incomplete repository.",
     "Nothing is created or changed there. If the repository has lost files, put them back; otherwise empty "
     "the folder or name another one in the configuration."},
    {ResticTrouble::Unreachable, ServiceState::NoServer, "warning", "The repository cannot be reached.",
     "The backup continues when it can be reached."},
    {ResticTrouble::NoNetwork, ServiceState::NoInternet, "warning", "There is no network connection.",
     "The backup continues when there is one."},
    {ResticTrouble::WrongPassword, ServiceState::BadConfiguration, "error",
     "The key of the repository is missing or wrong.", "Put your copy of the key back at"},
    {ResticTrouble::Locked, ServiceState::Retry, "warning", "Another program is using the repository.",
     "The backup continues when it has finished."},
    {ResticTrouble::Failed, ServiceState::BackupFailed, "error", "The backup has failed.",
     "It will be retried. Reason:"},
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

Alert alertFor(const ResticOutcome& outcome, const RepositoryPlace& place) {
    const TroubleRow* const row = rowOf(outcome.trouble);
    if (!row)
        return {};
    Alert alert{.kind = backupAlert, .severity = row->severity, .title = row->title, .body = row->advice};
    if (outcome.trouble == ResticTrouble::DiskAway || outcome.trouble == ResticTrouble::NoRepository)
        alert.actions = {std::string(makeRepositoryVerb) + ':'};
    if (outcome.trouble != ResticTrouble::WrongPassword) {
        alert.body += "\n" + reasonOf(outcome);
    } else if (::access(place.passwordFile.c_str(), F_OK) == 0) {
        alert.body += " " + place.passwordFile;
    } else {
        alert.title = "The location already has a repository, which needs its own key.";
        alert.body = "No other key opens it. Put your copy of its key at " + place.passwordFile +
                     ", or set another location in the configuration.";
    }
    return alert;
}

} // namespace kelvane
