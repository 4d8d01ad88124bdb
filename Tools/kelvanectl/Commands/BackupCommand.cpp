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

struct Look {
    ServiceState serviceState{};
    std::string name;
    bool isBackupNeeded = false;
    bool hasUnreadFiles = false;
    std::uint64_t damagedFiles = 0;
    bool isDamaged = false; // Damage is known, perhaps of earlier versions only; backups go on.

    [[nodiscard]] bool isAtWork() const {
        return isWorking(serviceState) || (serviceState == ServiceState::OperationsMessage && isDamaged);
    }
};

Look lookAt(Session& session) {
    Look look;
    session.state().updateDaemonState();
    look.serviceState = session.state().serviceState();
    look.name = stringForKelvaneServiceState(look.serviceState, session.bundle());
    look.isBackupNeeded = session.state().isBackupNeeded();
    look.hasUnreadFiles = session.state().hasUnreadFiles();
    look.damagedFiles = session.state().damagedFileCount();
    look.isDamaged = session.state().isBackupDamaged();
    return look;
}

ExitStatus refuse(const Look& look) {
    return complain(ExitStatus::Incomplete,
                    "nothing is backed up now: " +
                        (look.name.empty()
                             ? "state " + std::to_string(static_cast<std::uint32_t>(look.serviceState))
                             : look.name));
}

// Ends a pause and requests a backup of everything. When the backup is disabled it stays disabled.
ExitStatus order(const CommandLine& line, AnswerTimeout answerTimeout, Look& look) {
    const std::string root = Volumes::current().volumePath("/");
    const auto ask = [&](Session& session) {
        session.state().setPausedMinutes(0);
        session.state().setPriorityBackup(root);
        look = lookAt(session);
    };
    return askDaemon(line, ask, answerTimeout);
}

ExitStatus waitForEnd(const CommandLine& line, Look& look) {
    return askUntil(line, [&](Session& session) {
        look = lookAt(session);
        return !look.isAtWork() || !look.isBackupNeeded;
    });
}

ExitStatus backUpNow(const CommandLine& line, bool waits) {
    Look look;
    ExitStatus status = order(line, waits ? AnswerTimeout::Long : AnswerTimeout::Usual, look);
    if (status == ExitStatus::Success && waits)
        status = waitForEnd(line, look);
    if (status == ExitStatus::Success && !look.isAtWork())
        status = refuse(look);
    else if (status == ExitStatus::Success && waits && look.damagedFiles > 0)
        status = complain(ExitStatus::Incomplete, std::to_string(look.damagedFiles) +
                                                      " files in the backup are damaged; see \"kelvanectl "
                                                      "status\"");
    else if (status == ExitStatus::Success && waits && look.hasUnreadFiles)
        status = complain(ExitStatus::Incomplete, "some files could not be read; see \"kelvanectl status\"");
    if (status != ExitStatus::Success || !line.settings().json)
        return status;
    return finishWith(jsonText(
        nlohmann::ordered_json{{"serviceState", look.serviceState}, {"isBackupNeeded", look.isBackupNeeded}},
        true));
}

} // namespace

Action declareBackupNow(CLI::App& command) {
    const auto waits = std::make_shared<bool>(false);
    command.add_flag("--wait", *waits, "Wait until the backup has ended");
    return [waits](const CommandLine& line) { return backUpNow(line, *waits); };
}

} // namespace kelvane::ctl
