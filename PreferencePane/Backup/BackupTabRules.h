#pragma once

#include "Common/FileNode/FileNode.h"
#include "PreferencePane/Browser/BrowserVolumes.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace kelvane {

// What the Backup tab decides, as functions of plain values.

enum class BackupView { Disabled, Auto, Manual };

[[nodiscard]] constexpr BackupView backupViewFor(bool isConnected, bool isManual) {
    return !isConnected ? BackupView::Disabled : isManual ? BackupView::Manual : BackupView::Auto;
}

struct PaneConditions {
    bool isConnected = false;
    bool isAuthorized = false;
    bool isRecovering = false;
    bool isEnabled = false; // what `enableTabItems` was told
};

// What stands above a view: the key of its text, and English.
struct ContextText {
    BackupView view;
    bool isRecovering;
    std::string_view key;
    std::string_view english;
};
// Not for the disabled view.
[[nodiscard]] const ContextText& contextTextFor(BackupView view, bool isRecovering);

struct TabItems {
    bool excludes = false;     // the segments that add and remove, and the way to manual mode
    bool marks = false;        // the toggle button, and the way back
    bool enablesTable = false; // else it stays as it is
    bool reloadsFirstColumn = false;
    std::optional<bool> saysRecovering; // above the views; none: it stays as it is
};
[[nodiscard]] TabItems tabItemsFor(const PaneConditions& conditions);

// None: it stays as it is.
struct ExcludeSegments {
    std::optional<bool> add;
    std::optional<bool> remove;
    std::optional<bool> info;

    friend bool operator==(const ExcludeSegments&, const ExcludeSegments&) = default;
};
[[nodiscard]] ExcludeSegments excludeSegmentsFor(std::size_t selectedRows, bool isRecovering,
                                                 bool isAuthorized);

namespace togglestate {
inline constexpr std::int32_t add = 0;    // "Back this up"
inline constexpr std::int32_t remove = 1; // "Do not back this up"
} // namespace togglestate

// How several items are marked, kept up while one after the other changes. A null node is a path that the
// daemon does not know.
class MarkCounts {
public:
    void add(const FileNodeRef& node) { count(node, 1); }
    void remove(const FileNodeRef& node) { count(node, -1); }
    [[nodiscard]] std::int32_t toggleState() const {
        return unchecked_ == 0 || waiting_ > 0 ? togglestate::remove : togglestate::add;
    }

private:
    void count(const FileNodeRef& node, int change);

    std::ptrdiff_t unchecked_ = 0;
    std::ptrdiff_t waiting_ = 0; // of those
};

// A path that a person has chosen or dropped, as the daemon knows paths: below a volume's name where that is
// another than the boot volume. None for a whole volume, which cannot be excluded.
[[nodiscard]] std::optional<std::string> excludablePath(const std::string& path, const Volumes& volumes);

// The first that matches, null when none does. A path ends in a separator.
[[nodiscard]] const std::string* matchingPattern(std::string_view path,
                                                 std::span<const std::string> patterns);

} // namespace kelvane
