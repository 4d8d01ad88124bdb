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
    {ResticTrouble::NoRepository, ServiceState::NoServer, "warning", "The backup's repository is not there.",
     "If it is on a disk of its own, connect that. Only if it has been deleted, have a new one made in its "
     "place, or name another place in the configuration."},
    {ResticTrouble::DiskAway, ServiceState::NoServer, "warning", "The disk of the backup is not there.",
     "Connect it, and the backup goes on. Only if there is no such disk, have a new repository made in the "
     "folder itself."},
    {ResticTrouble::Occupied, ServiceState::NoServer, "error",
     "The folder of the backup's repository holds something else, or a part of one.",
     "Nothing is made there or changed. If the repository has lost files, put them back; else empty the "
     "folder "
     "or name another one in the configuration."},
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
        alert.title = "The backup's place holds a repository already, which needs its own key.";
        alert.body = "No other key opens it. Put your copy of its key at " + place.passwordFile +
                     ", or name another place in the configuration.";
    }
    return alert;
}

} // namespace kelvane
