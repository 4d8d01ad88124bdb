#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>

namespace kelvane {

// The decisions of the Restore tab, as pure functions.

// How fields and buttons describe the selection.
struct SelectionLook {
    std::string_view namePlaceholder; // the key of a text; empty: unchanged
    std::string_view datePlaceholder;
    bool getInfo = false;
    bool restore = false;
};
// `firstHasDate`: whether the first selected item has been backed up.
[[nodiscard]] SelectionLook selectionLookFor(std::size_t selected, bool firstHasDate, bool isEnabled,
                                             bool isAuthorized);

// The controls that are enabled after `enableTabItems`. Restore is enabled without regard to the selection
// until the selection changes.
struct RestoreControls {
    bool destination = false;
    bool assistant = false;
    bool restore = false;
    bool getInfo = false;
};
[[nodiscard]] RestoreControls restoreControlsFor(std::size_t selected, bool isEnabled, bool isAuthorized);

// Numbered by their index in the pop-up.
enum class RestoreLocation : std::int32_t { Original, Desktop, Other, None };
[[nodiscard]] RestoreLocation restoreLocationAt(int item);

// A bundle text's key and its English text.
struct RestoreText {
    std::string_view key;
    std::string_view english;
};
struct RestoreAlertTexts {
    RestoreText message;
    RestoreText information;
    std::array<RestoreText, 4> buttons;
};
extern const RestoreAlertTexts restoreOriginalAlert;
extern const RestoreAlertTexts restoreDesktopAlert;

// The action that follows an alert's answer.
enum class RestoreStep { Nothing, RestoreToOriginal, RestoreToDesktop, ChooseLocation };
[[nodiscard]] RestoreStep stepAfterAlert(RestoreLocation location, int returnCode);

// The target of a restore of `path`; without a folder, its original location.
[[nodiscard]] std::string restoreTarget(const std::string& path, const std::optional<std::string>& folder);

// The "/Volumes/<name>" parts of the paths, without duplicates; other paths are left out.
[[nodiscard]] std::set<std::string> volumesOf(std::span<const std::string> paths);

// The progress of a restore, from its counts of pending files.
class RestoreCounts {
public:
    void begin() { initialPendingCount_ = 0; }
    // Returns true when the count is the highest since the start; it is then the total.
    bool setPendingCount(std::uint32_t count);

    [[nodiscard]] std::uint32_t pendingCount() const { return pendingCount_; }
    [[nodiscard]] std::uint32_t initialPendingCount() const { return initialPendingCount_; }
    [[nodiscard]] std::uint32_t done() const { return initialPendingCount_ - pendingCount_; }
    [[nodiscard]] int percent() const; // 0 without a total

private:
    std::uint32_t pendingCount_ = 0;
    std::uint32_t initialPendingCount_ = 0;
};

} // namespace kelvane
