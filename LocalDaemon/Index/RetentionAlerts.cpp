#include "LocalDaemon/Index/RetentionAlerts.h"

#include "Common/RestoreStatus.h"
#include "Foundation/Format.h"

#include <array>
#include <ctime>

namespace kelvane {
namespace {

constexpr std::size_t shortIdLength = 8; // As long as restic prints ids.

std::string shortId(const std::string& id) {
    return id.substr(0, shortIdLength);
}

} // namespace

std::string kindOfDisappearance(const Disappearance& disappearance) {
    return "files_disappeared-" + shortId(disappearance.id);
}

Alert alertForDisappearance(const RetentionRecord::Entry& entry) {
    const Disappearance& gone = entry.disappearance;
    const std::string id = shortId(gone.id);
    Alert alert{.kind = kindOfDisappearance(gone),
                .severity = "warning",
                .title = "",
                .body = "",
                .actions = {std::string(forgetVerb) + ':' + id}};
    if (entry.decision == RetentionRecord::Decision::Keep) {
        alert.severity = "information";
        alert.title = formatText("%llu deleted files are kept in the backup.", gone.files);
        alert.body = "They disappeared on " + dateText(gone.time) +
                     " and stay until you choose \"forget\", which removes them once they have been kept for "
                     "the usual time.";
        return alert;
    }
    alert.actions.insert(alert.actions.begin(), std::string(keepVerb) + ':' + id);
    alert.title = formatText("%llu of %llu files have disappeared.", gone.files, gone.of);
    alert.body = "They were deleted, excluded or on a disk that was not mounted when the backup of " +
                 dateText(gone.time) +
                 " was made. They stay in the backup until you decide: \"keep\" keeps them for good, "
                 "\"forget\" removes them once they have been kept for the usual time.";
    return alert;
}

Alert alertForSnapshotAhead(const Snapshot& snapshot) {
    return {.kind = aheadAlert,
            .severity = "warning",
            .title = "Old versions are not being removed from the backup.",
            .body = "Snapshot " + shortId(snapshot.id) + " is dated " + dateText(snapshot.time) +
                    ", which is in the future. Check the clock. If the clock is correct, removal resumes on "
                    "that date."};
}

Alert alertForOrder(const Snapshot& before, const Snapshot& made) {
    return {.kind = orderAlert,
            .severity = "warning",
            .title = "The clock is behind.",
            .body = "The last backup is dated " + dateText(made.time) + ", and the one before it " +
                    dateText(before.time) +
                    ". It counts as the newest nevertheless. Set the clock, so that dates are right."};
}

Alert alertForListing(std::size_t done, std::size_t of) {
    return {.kind = restorestatus::listingAlert,
            .severity = "information",
            .title = "The repository is being listed.",
            .body = formatText(
                "%llu of %llu snapshots have been read. Backups and restores wait for the rest.", done, of)};
}

Alert alertForUnreadSnapshots(const std::string& errors) {
    return {.kind = unreadSnapshotsAlert,
            .severity = "error",
            .title = "Some snapshots of the backup cannot be read.",
            .body = "Files that only they contain cannot be restored now, and nothing is removed from the "
                    "backup. Check the disk, and the repository with `restic check`.\n" +
                    errors};
}

std::string dateText(std::int64_t secondsSince1970) {
    const std::time_t seconds = secondsSince1970;
    std::tm local{};
    std::array<char, 64> text{};
    if (::localtime_r(&seconds, &local))
        std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M", &local);
    return text.data();
}

} // namespace kelvane
