#pragma once

#include "LocalDaemon/Index/Alert.h"
#include "LocalDaemon/Index/RetentionRecord.h"

#include <string>

namespace kelvane {

inline constexpr const char* aheadAlert = "snapshot_ahead_of_clock";
inline constexpr const char* orderAlert = "snapshot_older_than_previous";
inline constexpr const char* unreadSnapshotsAlert = "snapshots_not_read";
// The verbs of the actions for a disappearance; their argument is its id.
inline constexpr const char* keepVerb = "keep";
inline constexpr const char* forgetVerb = "forget";

[[nodiscard]] std::string kindOfDisappearance(const Disappearance& disappearance);
// The decision must not be Forget.
[[nodiscard]] Alert alertForDisappearance(const RetentionRecord::Entry& entry);
[[nodiscard]] Alert alertForSnapshotAhead(const Snapshot& snapshot);
[[nodiscard]] Alert alertForOrder(const Snapshot& before, const Snapshot& made);
// Shows the progress of listing snapshots.
[[nodiscard]] Alert alertForListing(std::size_t done, std::size_t of);
[[nodiscard]] Alert alertForUnreadSnapshots(const std::string& errors);

// Returns local time, such as "2026-11-22 10:02".
[[nodiscard]] std::string dateText(std::int64_t secondsSince1970);

} // namespace kelvane
