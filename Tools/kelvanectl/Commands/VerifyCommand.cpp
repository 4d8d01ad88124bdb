#include "Common/ExtensionProtocol.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/Connection/Session.h"
#include "Tools/kelvanectl/Output/JsonText.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

struct VerificationSummary {
    bool isRunning = false;
    Value date;
    std::string outcome;
    std::uint64_t damagedFiles = 0;
    bool isDamaged = false; // Damage is known, perhaps of earlier versions only.
};

VerificationSummary readSummary(Session& session) {
    const BackupState& state = session.state();
    session.state().updateDaemonState();
    return {.isRunning = state.verificationProgress().has_value(),
            .date = state.lastVerifiedDate(),
            .outcome = state.lastVerification(),
            .damagedFiles = state.damagedFileCount(),
            .isDamaged = state.isBackupDamaged()};
}

ExitStatus verify(const CommandLine& line, bool waits) {
    VerificationSummary before;
    std::string refusal;
    ExitStatus status = askDaemon(line, [&](Session& session) {
        before = readSummary(session);
        refusal = session.state().hasExtension(extension::verify) ? session.state().verify()
                                                                  : "this daemon cannot verify its backup";
    });
    VerificationSummary after;
    if (status == ExitStatus::Success && !refusal.empty())
        return complain(ExitStatus::Incomplete, refusal);
    if (status == ExitStatus::Success && waits)
        status = askUntil(line, [&](Session& session) {
            after = readSummary(session);
            return !after.isRunning;
        });
    if (status != ExitStatus::Success || !waits)
        return status;
    if (after.isDamaged || after.damagedFiles > 0 || after.date.isAbsent() || after.date == before.date)
        status = complain(ExitStatus::Incomplete, after.outcome);
    const ExitStatus written = finishWith(
        line.settings().json ? jsonText(nlohmann::ordered_json{{"lastVerification", after.outcome},
                                                               {"damagedFileCount", after.damagedFiles}},
                                        true)
                             : after.outcome + '\n');
    return status == ExitStatus::Success ? written : status;
}

} // namespace

Action declareVerify(CLI::App& command) {
    const auto waits = std::make_shared<bool>(false);
    command.add_flag("--wait", *waits, "Wait for the end, and print the outcome");
    return [waits](const CommandLine& line) { return verify(line, *waits); };
}

} // namespace kelvane::ctl
