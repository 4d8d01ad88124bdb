#include "Tools/kelvanectl/Output/StatusReport.h"

#include "Common/ExtensionProtocol.h"
#include "Support/ServiceStates.h"
#include "Tools/kelvanectl/Arguments/PathArgument.h"
#include "Tools/kelvanectl/Output/AlertReport.h"
#include "Tools/kelvanectl/Output/DateText.h"
#include "Tools/kelvanectl/Output/Rows.h"

#include <array>
#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

using Json = nlohmann::ordered_json;

struct ModeName {
    const char* word;
    const char* text;
};
constexpr std::array<ModeName, 4> modeNames{
    {{"enabled", "Enabled"}, {"paused", "Paused"}, {"recover", "Recover"}, {"disabled", "Disabled"}}};

const ModeName& nameOf(DaemonMode mode) {
    return modeNames.at(static_cast<std::size_t>(mode));
}

std::string countText(std::uint64_t count, const char* noun) {
    return std::to_string(count) + noun + (count == 1 ? "" : "s");
}

std::string textOf(const StatusReport::Amount& amount) {
    std::string text;
    if (amount.files)
        text = countText(*amount.files, " file");
    if (amount.bytes)
        text += (text.empty() ? "" : ", ") + sizeText(*amount.bytes);
    return text;
}

std::string modeText(const StatusReport& report) {
    std::string text = nameOf(report.mode).text;
    if (report.mode == DaemonMode::Paused && report.schedule && report.schedule->pausedUntil)
        text += " until " + dateText(*report.schedule->pausedUntil);
    else if (report.mode == DaemonMode::Paused)
        text += " (" + std::to_string(report.pausedMinutes) + " minutes left)";
    return text;
}

std::string serviceStateText(const StatusReport& report) {
    return report.serviceStateText.empty()
               ? "state " + std::to_string(static_cast<std::uint32_t>(report.serviceState))
               : report.serviceStateText;
}

std::string restoreText(const StatusReport& report) {
    const std::string file = report.currentRestoreFile.empty() ? "" : shownPath(report.currentRestoreFile);
    if (report.currentRestoreJob == 0)
        return file;
    return "job " + std::to_string(report.currentRestoreJob) + (file.empty() ? "" : ", " + file);
}

std::string quotaText(const StatusReport& report) {
    if (!report.isQuotaLimited)
        return {};
    if (!report.connected)
        return "limited";
    return "limited to " + std::to_string(report.quotaMB) + " MB" + (report.isOverQuota ? ", exceeded" : "");
}

void addAccount(Rows& rows, const StatusReport& report) {
    rows.addIfAny("Account", report.userEmail);
    rows.addIfAny("Computer", report.computerNumber == 0 ? "" : std::to_string(report.computerNumber));
    rows.addIfAny("Server", report.serverURL);
    rows.addIfAny("Skin", report.skinId);
    rows.addIfAny("Quota", quotaText(report));
    rows.add("Daemon", report.daemonPath);
}

// Adds warnings that the alerts below explain.
void addTroubles(Rows& rows, const StatusReport& report) {
    if (report.hasUnreadFiles)
        rows.add("Unreadable", "some files could not be read and are not backed up");
    if (report.damagedFiles > 0)
        rows.add("Damaged", countText(report.damagedFiles, " file") + " in the backup");
    if (report.listsAlerts && report.alerts.empty())
        rows.add("Alerts", "none");
}

std::string verificationText(const BackupState& state) {
    if (const auto progress = state.verificationProgress())
        return "running, " + std::to_string(static_cast<int>(*progress * 100)) + " %";
    const Value date = state.lastVerifiedDate();
    return (date.isAbsent() ? "" : dateText(date.dateValue()) + ": ") + state.lastVerification();
}

template <class Number>
std::optional<Number> ifAvailable(bool available, Number number) {
    return available ? std::optional(number) : std::nullopt;
}

template <class Number>
Json jsonOf(const std::optional<Number>& number) {
    return number ? Json(*number) : Json();
}

void addLiveValues(Json& json, const StatusReport& report) {
    json["pausedMinutes"] = report.pausedMinutes;
    json["serviceState"] = report.serviceState;
    json["serviceStateText"] = report.serviceStateText;
    json["backedUpFileCount"] = jsonOf(report.backedUp.files);
    json["backedupFileSize"] = jsonOf(report.backedUp.bytes);
    json["pendingFileCount"] = jsonOf(report.pending.files);
    json["pendingFileSize"] = jsonOf(report.pending.bytes);
    json["currentBackupFile"] = report.currentBackupFile;
    json["currentRestoreFile"] = report.currentRestoreFile;
    json["currentRestoreJob"] = report.currentRestoreJob;
    json["statusString"] = report.statusString;
    json["lowerPriorityMode"] = report.lowerPriorityMode;
    json["hasUnreadFiles"] = report.hasUnreadFiles;
    json["damagedFileCount"] = report.damagedFiles;
    json["verification"] = report.verification;
    if (report.schedule)
        addTo(json, *report.schedule);
    json["alerts"] = alertsJson(report.alerts);
    json["isOverQuota"] = report.isOverQuota;
    json["quotaMB"] = report.quotaMB;
}

} // namespace

StatusReport statusReport(const BackupState& state, const Bundle& bundle, std::string daemonPath) {
    StatusReport report;
    report.daemonPath = std::move(daemonPath);
    report.connected = state.connected();
    report.pausedMinutes = state.pausedMinutes();
    report.mode = daemonMode(report.pausedMinutes, state.recoverMode(), report.connected);
    report.serviceState = state.serviceState();
    if (report.serviceState == ServiceState::Disabled)
        report.mode = DaemonMode::Disabled; // A disabled daemon still answers.
    report.serviceStateText = stringForKelvaneServiceState(report.serviceState, bundle);
    report.backedUp = {ifAvailable(state.backedUpFileCountAvailable(), state.backedUpFileCount()),
                       ifAvailable(state.backedupFileSizeAvailable(), state.backedupFileSize())};
    report.pending = {ifAvailable(state.pendingFileCountAvailable(), state.pendingFileCount()),
                      ifAvailable(state.pendingFileSizeAvailable(), state.pendingFileSize())};
    report.currentBackupFile = state.currentBackupFile().stringValue();
    report.currentRestoreFile = state.currentRestoreFile().stringValue();
    report.currentRestoreJob = state.currentRestoreJob();
    report.statusString = state.statusString().stringValue();
    report.alerts = state.alerts();
    report.verification = verificationText(state);
    report.schedule = scheduleReport(state);
    report.hasUnreadFiles = state.hasUnreadFiles();
    report.damagedFiles = state.damagedFileCount();
    report.listsAlerts = state.hasExtension(extension::alerts);
    report.lowerPriorityMode = state.lowerPriorityMode();
    report.userEmail = state.userEmail();
    report.computerNumber = state.computerNumber().int64Value();
    report.serverURL = state.serverURL();
    report.skinId = state.skinId();
    report.isQuotaLimited = state.isQuotaLimited();
    report.isOverQuota = state.isOverQuota();
    report.quotaMB = state.quotaMB();
    return report;
}

std::string textOf(const StatusReport& report) {
    Rows rows;
    if (!report.connected) {
        const bool isKept =
            !report.userEmail.empty() || !report.serverURL.empty() || report.computerNumber != 0;
        rows.addHeading(isKept ? "As of the last connection to the daemon:"
                               : "Nothing is known: no daemon has been reached so far.");
        addAccount(rows, report);
        return rows.take();
    }
    rows.add("Mode", modeText(report));
    rows.add("State", serviceStateText(report));
    if (report.statusString != report.serviceStateText)
        rows.addIfAny("Status", report.statusString);
    if (report.schedule)
        addTo(rows, *report.schedule);
    rows.addKnown("Backed up", textOf(report.backedUp));
    rows.addKnown("Pending", textOf(report.pending));
    rows.addIfAny("Backing up", report.currentBackupFile.empty() ? "" : shownPath(report.currentBackupFile));
    rows.addIfAny("Speed", report.schedule ? progressText(*report.schedule) : "");
    rows.addIfAny("Restoring", restoreText(report));
    rows.addIfAny("Verified", report.schedule && report.verification.empty() ? "never" : report.verification);
    addTroubles(rows, report);
    rows.addIfAny("Priority", report.lowerPriorityMode ? "lower" : "");
    addAccount(rows, report);
    return rows.take() + (report.alerts.empty() ? "" : '\n' + alertsText(report.alerts));
}

Json jsonOf(const StatusReport& report) {
    Json json;
    json["connected"] = report.connected;
    json["valuesAreOld"] = !report.connected;
    json["daemon"] = report.daemonPath;
    json["mode"] = nameOf(report.mode).word;
    if (report.connected)
        addLiveValues(json, report);
    json["userEmail"] = report.userEmail;
    json["computerNumber"] = report.computerNumber;
    json["serverURL"] = report.serverURL;
    json["skinId"] = report.skinId;
    json["isQuotaLimited"] = report.isQuotaLimited;
    return json;
}

} // namespace kelvane::ctl
