#include "Common/KelvProxy.h"
#include "Common/StateKeys.h"
#include "Platform/Files/Volumes.h"
#include "Support/ServiceStates.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/Connection/Session.h"
#include "Tools/kelvanectl/Output/JsonText.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

struct BackupStatus {
    ServiceState serviceState{};
    std::string name;
    bool isBackupNeeded = false;
    bool hasUnreadFiles = false;
    std::uint64_t damagedFiles = 0;
    bool isDamaged = false; // Damage is known, perhaps of earlier versions only; backups go on.

    [[nodiscard]] bool isBackupActive() const {
        return isWorking(serviceState) || (serviceState == ServiceState::OperationsMessage && isDamaged);
    }
};

BackupStatus readStatus(Session& session) {
    BackupState& state = session.state();
    state.updateDaemonState();
    return {.serviceState = state.serviceState(),
            .name = stringForKelvaneServiceState(state.serviceState(), session.bundle()),
            .isBackupNeeded = state.isBackupNeeded(),
            .hasUnreadFiles = state.hasUnreadFiles(),
            .damagedFiles = state.damagedFileCount(),
            .isDamaged = state.isBackupDamaged()};
}

ExitStatus refuse(const BackupStatus& backup) {
    return complain(ExitStatus::Incomplete,
                    "nothing is backed up now: " +
                        (backup.name.empty()
                             ? "state " + std::to_string(static_cast<std::uint32_t>(backup.serviceState))
                             : backup.name));
}

// Ends a pause and requests a backup of everything. When the backup is disabled it stays disabled.
ExitStatus order(const CommandLine& line, AnswerTimeout answerTimeout, BackupStatus& backup) {
    const std::string root = Volumes::current().volumePath("/");
    const auto ask = [&](Session& session) {
        session.state().setPausedMinutes(0);
        session.state().setPriorityBackup(root);
        backup = readStatus(session);
    };
    return askDaemon(line, ask, answerTimeout);
}

ExitStatus waitForEnd(const CommandLine& line, BackupStatus& backup) {
    return askUntil(line, [&](Session& session) {
        backup = readStatus(session);
        return !backup.isBackupActive() || !backup.isBackupNeeded;
    });
}

ExitStatus backUpNow(const CommandLine& line, bool waits) {
    BackupStatus backup;
    ExitStatus status = order(line, waits ? AnswerTimeout::Long : AnswerTimeout::Usual, backup);
    if (status == ExitStatus::Success && waits)
        status = waitForEnd(line, backup);
    if (status == ExitStatus::Success && !backup.isBackupActive())
        status = refuse(backup);
    else if (status == ExitStatus::Success && waits && backup.damagedFiles > 0)
        status = complain(ExitStatus::Incomplete, std::to_string(backup.damagedFiles) +
                                                      " files in the backup are damaged; see \"kelvanectl "
                                                      "status\"");
    else if (status == ExitStatus::Success && waits && backup.hasUnreadFiles)
        status = complain(ExitStatus::Incomplete, "some files could not be read; see \"kelvanectl status\"");
    if (status != ExitStatus::Success || !line.settings().json)
        return status;
    return finishWith(jsonText(nlohmann::ordered_json{{"serviceState", backup.serviceState},
                                                      {"isBackupNeeded", backup.isBackupNeeded}},
                               true));
}

} // namespace

Action declareBackupNow(CLI::App& command) {
    const auto waits = std::make_shared<bool>(false);
    command.add_flag("--wait", *waits, "Wait until the backup has ended");
    return [waits](const CommandLine& line) { return backUpNow(line, *waits); };
}

} // namespace kelvane::ctl
