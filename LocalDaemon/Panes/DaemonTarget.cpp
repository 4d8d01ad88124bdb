#include "LocalDaemon/Panes/DaemonTarget.h"

#include "Common/RestoreStatus.h"
#include "Common/StandingAlert.h"
#include "Common/TypedCall.h"
#include "Foundation/Unicode.h"
#include "Platform/Accounts.h"
#include "Support/Logging.h"

namespace kelvane {
namespace {

template <Selector selector, auto function>
consteval MethodBinding<DaemonTarget> row() {
    return bind<DaemonTarget, selector, function>();
}

constexpr MethodBinding<DaemonTarget> bindings[] = {
    row<"terminate", &DaemonTarget::terminate>(),
    row<"showRestoreWizard", &DaemonTarget::showRestoreWizard>(),
    row<"restoreWithChoices:", &DaemonTarget::restoreWithChoices>(),
    row<"mappedUserAsString:", &DaemonTarget::mappedUserAsString>(),
    row<"backedupStateString", &DaemonTarget::backedupStateString>(),
    row<"liveStateString", &DaemonTarget::liveStateString>(),
    row<"marketingMessage", &DaemonTarget::marketingMessage>(),
    row<"computerNumber", &DaemonTarget::computerNumber>(),
    row<"userEmail", &DaemonTarget::userEmail>(),
    row<"setValueForProfileKey:withString:", &DaemonTarget::setValueForProfileKey>(),
    row<"stringValueForProfileKey:", &DaemonTarget::stringValueForProfileKey>(),
    row<"backupColorsForFiles:", &DaemonTarget::backupColorsForFiles>(),
    row<"stringForState:", &DaemonTarget::stringForState>(),
    row<"longlongForState:", &DaemonTarget::longlongForState>(),
    row<"longForState:", &DaemonTarget::longForState>(),
    row<"endStateHandler", &DaemonTarget::endStateHandler>(),
    row<"setStateHandler", &DaemonTarget::setStateHandler>(),
    row<"endAlertHandler", &DaemonTarget::endAlertHandler>(),
    row<"setAlertHandler", &DaemonTarget::setAlertHandler>(),
    row<"clearAccountOverQuotaTestingFlag", &DaemonTarget::clearAccountOverQuotaTestingFlag>(),
    row<"setAccountOverQuotaTestingFlag:", &DaemonTarget::setAccountOverQuotaTestingFlag>(),
    row<"cancelAllRestoreJobs", &DaemonTarget::cancelAllRestoreJobs>(),
    row<"getRestoreJobStatus:", &DaemonTarget::getRestoreJobStatus>(),
    row<"getCurrentRestoreJob", &DaemonTarget::getCurrentRestoreJob>(),
    row<"restoreFile:toPath:version:priority:", &DaemonTarget::restoreFile>(),
    row<"setBackupControl:", &DaemonTarget::setBackupControl>(),
    row<"setPriorityBackup:", &DaemonTarget::setPriorityBackup>(),
    row<"removeFileFromBackup:", &DaemonTarget::removeFileFromBackup>(),
    row<"addFilesToBackup:", &DaemonTarget::addFilesToBackup>(),
    row<"addFileToBackup:", &DaemonTarget::addFileToBackup>(),
    row<"getFileTypeToggle:", &DaemonTarget::getFileTypeToggle>(),
    row<"setFileTypeToggle:toggle:", &DaemonTarget::setFileTypeToggle>(),
    row<"excludedFiles:", &DaemonTarget::excludedFiles>(),
    row<"policyExcludeList", &DaemonTarget::policyExcludeList>(),
    row<"unexcludeFileFromBackup:", &DaemonTarget::unexcludeFileFromBackup>(),
    row<"excludeFileFromBackup:", &DaemonTarget::excludeFileFromBackup>(),
    row<"childrenDictionariesForPath:", &DaemonTarget::childrenDictionariesForPath>(),
    row<"dictionaryForPath:withDirSizes:", &DaemonTarget::dictionaryForPathWithDirSizes>(),
    row<"dictionaryForPath:", &DaemonTarget::dictionaryForPath>(),
    row<"setServiceState:", &DaemonTarget::setServiceState>(),
    row<"serviceState", &DaemonTarget::serviceState>(),
    row<"daemonState", &DaemonTarget::daemonState>(),
    row<"serverURL", &DaemonTarget::serverURL>(),
    row<"setAutomaticMode:", &DaemonTarget::setAutomaticMode>(),
    row<"automaticMode", &DaemonTarget::automaticMode>(),
    row<"setDelayShutdown:", &DaemonTarget::setDelayShutdown>(),
    row<"delayShutdown", &DaemonTarget::delayShutdown>(),
    row<"setLowerPriorityMode:", &DaemonTarget::setLowerPriorityMode>(),
    row<"lowerPriorityMode", &DaemonTarget::lowerPriorityMode>(),
    row<"setRecoverMode:", &DaemonTarget::setRecoverMode>(),
    row<"recoverMode", &DaemonTarget::recoverMode>(),
    row<"setIncludeRequired:", &DaemonTarget::setIncludeRequired>(),
    row<"setPausedMinutes:", &DaemonTarget::setPausedMinutes>(),
    row<"pausedMinutes", &DaemonTarget::pausedMinutes>(),
    row<"setEnabled:", &DaemonTarget::setEnabled>(),
    row<"dismissAlert:", &DaemonTarget::dismissAlert>(),
    row<"performAlertAction:ofAlert:", &DaemonTarget::performAlertAction>(),
    row<"verify", &DaemonTarget::verify>(),
};

consteval bool isEveryMethodBound() {
    for (const MethodDescription& method : KelvaneExtendedDaemonProtocol) {
        bool found = false;
        for (const auto& binding : bindings)
            found = found || binding.description.selector == method.selector;
        if (!found)
            return false;
    }
    return true;
}
static_assert(isEveryMethodBound(), "a method of the daemon's tables is not answered");

std::string textOf(const FileTotals& totals, std::string_view where) {
    return formatText("%llu files with %llu bytes %@", totals.count, totals.bytes, where);
}

} // namespace

Protocol DaemonTarget::methods() const {
    return KelvaneExtendedDaemonProtocol;
}

void DaemonTarget::invoke(Invocation& invocation) {
    invokeBound<DaemonTarget>(bindings, *this, invocation);
}

Value DaemonTarget::stringForState(std::uint32_t code) {
    return code == restoreprogress::currentFile ? textFromPath(world_->state->restoreProgress().file)
                                                : serviceStateText(code);
}

std::uint64_t DaemonTarget::longlongForState(std::uint32_t code) {
    return code == restoreprogress::currentFileSize ? world_->state->restoreProgress().fileSize : 0;
}

std::int64_t DaemonTarget::longForState(std::uint32_t code) {
    return code == restoreprogress::pendingCount
               ? static_cast<std::int64_t>(world_->state->restoreProgress().pending)
               : 0;
}

Value DaemonTarget::backedupStateString() {
    return textOf(world_->state->totals().backedUp, "in the backup");
}

Value DaemonTarget::liveStateString() {
    return textOf(world_->state->found(), "on this computer");
}

void DaemonTarget::setBackupControl(std::uint32_t flags) {
    world_->state->changeSettings([flags](Settings& settings) { settings.backupControlFlags = flags; });
}

Value DaemonTarget::dismissAlert(const Value& id) {
    return world_->alertActions->perform(std::string(dismissAction), id.stringValue());
}

Value DaemonTarget::performAlertAction(const Value& action, const Value& ofAlert) {
    return world_->alertActions->perform(action.stringValue(), ofAlert.stringValue());
}

Value DaemonTarget::verify() {
    if (!world_->state->backupNeed().mayRead)
        return "The backup is paused, disabled or not configured.";
    world_->runner->verifyNow();
    return "";
}

// A user is given by number or by name.
Value DaemonTarget::mappedUserAsString(const Value& user) {
    if (!user.isNumber())
        return user.stringValue();
    const std::uint32_t number = user.uint32Value();
    return SystemAccounts().userName(number).value_or(std::to_string(number));
}

Value DaemonTarget::stringValueForProfileKey(const Value& key) {
    if (const auto job = restorestatus::jobOfFailuresKey(key.stringValue()))
        return world_->restores->failures(*job);
    return world_->state->setting(&Settings::profile)[key.stringValue()].stringValue();
}

void DaemonTarget::setValueForProfileKey(const Value& key, const Value& text) {
    if (!key.isString() || !text.isString())
        return logWarning("A profile value without a key or a text is ignored.");
    bool isTaken = false;
    world_->state->changeSettings(
        [&](Settings& settings) { isTaken = setEntry(settings.profile, key.stringValue(), text); });
    if (!isTaken)
        logWarning("Profile value %@ ignored: it is too long, or there are too many values.", key);
}

std::uint32_t DaemonTarget::getFileTypeToggle(const Value& fileType) {
    return world_->state->setting(&Settings::fileTypeToggles)[fileType.stringValue()].uint32Value();
}

void DaemonTarget::setFileTypeToggle(const Value& fileType, std::uint32_t toggle) {
    if (!fileType.isString())
        return logWarning("The toggle of a file type without a name is ignored.");
    bool isTaken = false;
    world_->state->changeSettings([&](Settings& settings) {
        isTaken = setEntry(settings.fileTypeToggles, fileType.stringValue(), toggle);
    });
    if (!isTaken)
        logWarning("The toggle of a file type is ignored: its name is too long, or there are too many.");
}

Value DaemonTarget::dictionaryForPathWithDirSizes(const Value& path, bool withDirSizes) {
    using Sizes = NodeAnswers::FolderSizes;
    return world_->nodes->node(path, withDirSizes ? Sizes::Contents : Sizes::Own);
}

void DaemonTarget::setPriorityBackup(const Value& path) {
    const auto real = world_->disks->pathResolver().pathWithoutLinks(path.stringValue());
    if (!real)
        return logWarning("A request to back up an invalid path first is ignored: %@", path);
    world_->state->backupOrders().add();
    world_->runner->backUpNow(*real);
}

bool DaemonTarget::restoreWithChoices(const Value& choices) {
    logWarning("Call refused: restoreWithChoices: is not supported (argument %@)", choices);
    return false;
}

// The source as typed takes precedence over the path with its links resolved, if the backup has it.
std::uint32_t DaemonTarget::restoreFile(const Value& source, const Value& destination, std::uint32_t version,
                                        std::uint32_t priority) {
    if (world_->state->configuration().repository.location.empty())
        return world_->restores->refuse(
            formatText("%@ cannot be restored: no valid repository is configured.", source));
    PathResolver resolver = world_->disks->pathResolver();
    std::optional<std::string> from = resolver.realPath(source.stringValue());
    const std::optional<std::string> to = resolver.pathWithoutLinks(destination.stringValue());
    if (!from || !to)
        return world_->restores->refuse(formatText(
            "%@ cannot be restored to %@: both must be valid absolute paths.", source, destination));
    if (!world_->state->index()->find(*from))
        from = resolver.pathWithoutLinks(source.stringValue());
    return world_->restores->add(
        {.id = 0, .version = version, .priority = priority, .source = *from, .target = *to});
}

void DaemonTarget::setFlag(bool Settings::*flag, bool on) {
    world_->state->changeSettings([flag, on](Settings& settings) { settings.*flag = on; });
}

} // namespace kelvane
