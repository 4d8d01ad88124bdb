#pragma once

#include "LocalDaemon/Index/Alert.h"
#include "LocalDaemon/Index/RetentionRecord.h"

#include <string>

namespace kelvane {

inline constexpr const char* aheadAlert = "snapshot_ahead_of_clock";
inline constexpr const char* orderAlert = "snapshot_older_than_previous";
inline constexpr const char* unreadSnapshotsAlert = "snapshots_not_read";
// The verbs of what can be done about files that have disappeared; their argument names the disappearance.
inline constexpr const char* keepVerb = "keep";
inline constexpr const char* forgetVerb = "forget";

[[nodiscard]] std::string kindOfDisappearance(const Disappearance& disappearance);
// Of one that a person has not given up.
[[nodiscard]] Alert alertForDisappearance(const RetentionRecord::Entry& entry);
[[nodiscard]] Alert alertForSnapshotAhead(const Snapshot& snapshot);
[[nodiscard]] Alert alertForOrder(const Snapshot& before, const Snapshot& made);
// While so many of them have been listed.
[[nodiscard]] Alert alertForListing(std::size_t done, std::size_t of);
[[nodiscard]] Alert alertForUnreadSnapshots(const std::string& errors);

// "2026-11-22 10:02", local time.
[[nodiscard]] std::string dateText(std::int64_t secondsSince1970);

} // namespace kelvane
