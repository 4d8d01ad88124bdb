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

// The decisions of the Backup tab, as pure functions.

enum class BackupView { Disabled, Auto, Manual };

[[nodiscard]] constexpr BackupView backupViewFor(bool isConnected, bool isManual) {
    return !isConnected ? BackupView::Disabled : isManual ? BackupView::Manual : BackupView::Auto;
}

struct PaneConditions {
    bool isConnected = false;
    bool isAuthorized = false;
    bool isRecovering = false;
    bool isEnabled = false; // the argument of the last `enableTabItems`
};

// The text above a view: its key and the English text.
struct ContextText {
    BackupView view;
    bool isRecovering;
    std::string_view key;
    std::string_view english;
};
// Not valid for the disabled view.
[[nodiscard]] const ContextText& contextTextFor(BackupView view, bool isRecovering);

struct TabItems {
    bool enablesExclusions = false; // the add and remove buttons, and the one that switches to manual mode
    bool enablesManualControls = false; // the toggle button, and the one that switches to automatic mode
    bool enablesTable = false;          // otherwise unchanged
    bool reloadsFirstColumn = false;
    std::optional<bool> saysRecovering; // the text above the views; none: unchanged
};
[[nodiscard]] TabItems tabItemsFor(const PaneConditions& conditions);

// Whether each button below the list of exclusions is enabled; none: unchanged.
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

// The states of several selected items, updated while they change one by one. A null node is a path that the
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
    std::ptrdiff_t waiting_ = 0; // the unchecked ones that wait to be backed up
};

// Converts a path that the user chose or dropped to the daemon's form: below the volume's name unless on the
// boot volume. None for a whole volume, which cannot be excluded.
[[nodiscard]] std::optional<std::string> excludablePath(const std::string& path, const Volumes& volumes);

// The first pattern that matches, or null. The path must end with a separator.
[[nodiscard]] const std::string* matchingPattern(std::string_view path,
                                                 std::span<const std::string> patterns);

} // namespace kelvane
