// Runs the tools in the bundle that start, stop and remove the daemon, for which the Status tab needs an
// administrator.

#include "Foundation/Format.h"
#include "PreferencePane/Services/Sheet.h"
#include "PreferencePane/Status/ScreenText.h"
#include "PreferencePane/Status/StatusTabController.h"
#include "PreferencePane/Status/ToolWait.h"
#include "Support/Logging.h"

#include <algorithm>
#include <cerrno>
#include <ui_StatusTab.h>
#include <unistd.h>

namespace kelvane {
namespace {

static_assert(HandOffFile::formSize == authorizationFormSize);

// The variable that tells the tools, like every program, which daemon to use.
constexpr const char* daemonVariable = "KELVANE_DAEMON=";

// How many times the end of a tool is checked after its completion word, so that it does not stay a zombie.
constexpr int endChecks = 8;

struct Switch {
    const char* tool;
    const char* word;
    StatusText failure;
    bool PaneFlags::*isAuthorized;
};
constexpr Switch switches[] = {
    {"Enable", "load", StatusText::EnableFailed, &PaneFlags::enableAuthorized},
    {"Disable", "unload", StatusText::DisableFailed, &PaneFlags::disableAuthorized},
};

std::optional<ChildProcess> startTool(const Bundle& bundle, std::vector<std::string> arguments,
                                      ChildCommand::Group group) {
    ChildCommand command{.arguments = std::move(arguments), .group = group};
    if (const std::string daemon = bundle.information("DaemonPath").stringValue(); !daemon.empty())
        command.environment.push_back(daemonVariable + daemon);
    return ChildProcess::start(command, {.errors = ChildStreams::inMemory});
}

} // namespace

// While it lives, the tab accepts no other operation on the daemon.
class KelvaneStatusTabController::Operating {
public:
    explicit Operating(KelvaneStatusTabController& tab)
        : tab_(tab), hadFocus_(tab.ui_->daemonModeButton->hasFocus()) {
        set(true);
    }
    ~Operating() {
        set(false);
        if (hadFocus_)
            tab_.ui_->daemonModeButton->setFocus();
    }
    Operating(const Operating&) = delete;
    Operating& operator=(const Operating&) = delete;

private:
    void set(bool isOperating) {
        tab_.isOperating_ = isOperating;
        tab_.ui_->daemonModeButton->setEnabled(!isOperating);
    }

    KelvaneStatusTabController& tab_;
    const bool hadFocus_;
};

// Returns the tool's exit status; 0 also when no tool was run, and for the uninstaller.
int KelvaneStatusTabController::uninstall(Operation operation) {
    const Operating operating(*this);
    Authorization& authorization = prefs_.authorization();
    const bool wasLocked = authorization.state() != Authorization::State::Authorized;
    if (!unlockAndWait(authorization))
        return 0;
    const int result = handOver(operation);
    // The password was for this operation only.
    if (wasLocked)
        authorization.lock();
    return result;
}

int KelvaneStatusTabController::handOver(Operation operation) {
    const auto handOff = HandOffFile::create(handOffPath_);
    const int error = errno;
    const auto form = prefs_.authorization().externalForm();
    if (!handOff || !form) {
        showFailure(operation, formatTranslated(text(StatusText::NotHandedOver), handOffPath_,
                                                errorText(handOff ? ESRCH : error)));
        return 0;
    }
    std::ranges::copy(*form, handOff->form().begin());
    if (operation != Operation::Uninstall)
        return runSwitch(operation);
    runUninstaller(*handOff);
    return 0;
}

int KelvaneStatusTabController::runSwitch(Operation operation) {
    const Switch& wanted = switches[static_cast<std::size_t>(operation)];
    const auto tool = prefs_.bundle()->auxiliaryExecutable(wanted.tool);
    if (!tool) {
        showFailure(operation, formatTranslated(text(StatusText::ToolMissing), wanted.tool));
        return 0;
    }
    auto process = startTool(*prefs_.bundle(), {*tool, "0", std::to_string(::getuid()), wanted.word},
                             ChildCommand::Group::Callers);
    if (process && !waitUntil([&] { return process->hasEnded(); }, *process))
        return 0;
    const int status = process ? process->exitStatus() : ChildProcess::cannotExecute;
    KelvaneCLog("%@ ended with status %d", *tool, status);
    prefs_.flags().*wanted.isAuthorized = status == 0;
    if (!process)
        showFailure(operation, formatTranslated(text(StatusText::NoRoomForTool), wanted.tool));
    else if (const std::string errors = process->errors(); status != 0)
        showFailure(operation, errors.empty()
                                   ? formatTranslated(text(StatusText::ToolEnded), wanted.tool, status)
                                   : errors);
    return status;
}

void KelvaneStatusTabController::runUninstaller(const HandOffFile& handOff) {
    constexpr const char* name = "Uninstall";
    const auto tool = prefs_.bundle()->auxiliaryExecutable(name);
    if (!tool)
        return showFailure(Operation::Uninstall, formatTranslated(text(StatusText::ToolMissing), name));
    auto process = startTool(*prefs_.bundle(),
                             {*tool, std::to_string(::getpid()), std::to_string(::getuid()), "uninstall"},
                             ChildCommand::Group::Own);
    if (!process)
        return showFailure(Operation::Uninstall, formatTranslated(text(StatusText::NoRoomForTool), name));
    if (!waitUntil([&] { return handOff.completionWord() != 0 || process->hasEnded(); }, *process))
        return;
    // Reads the word again: it may have been written between the two checks.
    isUninstalled_ = handOff.completionWord() == HandOffFile::succeeded;
    int looks = 0;
    static_cast<void>(waitUntil([&] { return process->hasEnded() || ++looks > endChecks; }, *process));
    if (isUninstalled_)
        return prefs_.terminateHost();
    showFailure(Operation::Uninstall, process->errors());
}

// A reason may be empty.
void KelvaneStatusTabController::showFailure(Operation operation, const std::string& reason) {
    KelvaneCLog("%@", reason);
    if (!isShown_)
        return;
    const bool isUninstalling = operation == Operation::Uninstall;
    const StatusText title = isUninstalling ? StatusText::UninstallErrorTitle
                                            : switches[static_cast<std::size_t>(operation)].failure;
    QStringList parts;
    if (isUninstalling)
        parts += screenText(text(StatusText::UninstallErrorMessage));
    if (!reason.empty())
        parts += screenText(reason);
    sheet_ = openSheet(
        view_, {.message = screenText(text(title)), .informative = parts.join("\n\n"), .buttons = {"OK"}},
        &context_, [](int) {});
}

void KelvaneStatusTabController::uninstallAction() {
    if (isOperating_)
        return;
    sheet_ = openSheet(view_,
                       {.message = screenText(text(StatusText::UninstallMessage)),
                        .informative = screenText(text(StatusText::UninstallInformative)),
                        .buttons = {screenText(text(StatusText::UninstallButton)),
                                    screenText(text(StatusText::UninstallCancelButton))}},
                       &context_, [this](int returnCode) { uninstallAlertDidEnd(returnCode); });
}

void KelvaneStatusTabController::uninstallAlertDidEnd(int returnCode) {
    if (returnCode != firstButtonReturn)
        return;
    const std::string survey = prefs_.bundle()->information("UninstallSurveyURL").stringValue();
    if (!survey.empty())
        prefs_.opener().openURL("http://" + survey,
                                [](const std::string& reason) { KelvaneCLog("%@", reason); });
    static_cast<void>(uninstall(Operation::Uninstall));
}

} // namespace kelvane
