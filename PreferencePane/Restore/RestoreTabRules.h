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

// What the Restore tab decides, as functions of plain values.

// How the fields and buttons say what is selected.
struct SelectionLook {
    std::string_view namePlaceholder; // a text's key; empty: it stays as it is
    std::string_view datePlaceholder;
    bool getInfo = false;
    bool restore = false;
};
// `firstHasDate`: the first selected item has been backed up.
[[nodiscard]] SelectionLook selectionLookFor(std::size_t selected, bool firstHasDate, bool isEnabled,
                                             bool isAuthorized);

// What can be used once `enableTabItems` is through. Restore so does not ask what is selected until the
// selection changes.
struct RestoreControls {
    bool destination = false;
    bool assistant = false;
    bool restore = false;
    bool getInfo = false;
};
[[nodiscard]] RestoreControls restoreControlsFor(std::size_t selected, bool isEnabled, bool isAuthorized);

// By the item of the pop-up.
enum class RestoreLocation : std::int32_t { Original, Desktop, Other, None };
[[nodiscard]] RestoreLocation restoreLocationAt(int item);

// Keys of the bundle's texts, and English.
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

// What an alert's answer leads to.
enum class RestoreStep { Nothing, RestoreToOriginal, RestoreToDesktop, ChooseLocation };
[[nodiscard]] RestoreStep stepAfterAlert(RestoreLocation location, int returnCode);

// Where a path is restored to, without a folder in its own place.
[[nodiscard]] std::string restoreTarget(const std::string& path, const std::optional<std::string>& folder);

// "/Volumes/<name>" for everything that is below such a path, or it itself.
[[nodiscard]] std::set<std::string> volumesOf(std::span<const std::string> paths);

// What is known of a restore by its counts of files that are still to come.
class RestoreCounts {
public:
    void begin() { initialPendingCount_ = 0; }
    // True when it is more than ever since it began: then that is the total.
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
