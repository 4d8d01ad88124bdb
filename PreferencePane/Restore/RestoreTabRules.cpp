#include "PreferencePane/Restore/RestoreTabRules.h"

#include "Foundation/PathComponents.h"
#include "PreferencePane/Services/Sheet.h"

#include <algorithm>
#include <vector>

namespace kelvane {
namespace {

// The keys of the bundle's texts, which are also the English texts.
constexpr std::string_view noSelection = "No selection";
constexpr std::string_view unavailable = "Unavailable";
constexpr std::string_view multipleFiles = "Multiple files selected";

// Indexed by the alert and by the button that was pressed.
constexpr RestoreStep steps[][3] = {
    {RestoreStep::RestoreToOriginal, RestoreStep::RestoreToDesktop, RestoreStep::ChooseLocation},
    {RestoreStep::RestoreToDesktop, RestoreStep::RestoreToOriginal, RestoreStep::ChooseLocation},
};

} // namespace

constinit const RestoreAlertTexts restoreOriginalAlert = {
    {"Restore Alert Message", "Restore to original location may overwrite files."},
    {"Restore Alert Information",
     "Restoring files to their original locations will overwrite existing files with the same names. You "
     "should only do this if the original files have been lost."},
    {{{"Restore Alert Button 1", "Restore to Original"},
      {"Restore Alert Button 2", "Restore to Desktop"},
      {"Restore Alert Button 3", "Other Location…"},
      {"Restore Alert Button 4", "Cancel"}}},
};
constinit const RestoreAlertTexts restoreDesktopAlert = {
    {"Restore Desktop Alert Message", "Restore to Desktop location may overwrite files."},
    {"Restore Desktop Alert Information",
     "Restoring files to the Desktop will overwrite existing files with the same names if they already exist "
     "in that location."},
    {{{"Restore Desktop Alert Button 1", "Restore to Desktop"},
      {"Restore Desktop Alert Button 2", "Restore to Original"},
      {"Restore Desktop Alert Button 3", "Other Location…"},
      {"Restore Desktop Alert Button 4", "Cancel"}}},
};

SelectionLook selectionLookFor(std::size_t selected, bool firstHasDate, bool isEnabled, bool isAuthorized) {
    if (selected == 0)
        return {.namePlaceholder = {}, .datePlaceholder = noSelection};
    const bool restores = isEnabled && firstHasDate && isAuthorized;
    if (selected == 1)
        return {.namePlaceholder = {},
                .datePlaceholder = unavailable,
                .getInfo = isEnabled && isAuthorized,
                .restore = restores};
    return {.namePlaceholder = multipleFiles, .datePlaceholder = multipleFiles, .restore = restores};
}

RestoreControls restoreControlsFor(std::size_t selected, bool isEnabled, bool isAuthorized) {
    if (!isAuthorized)
        return {};
    return {.destination = isEnabled, .assistant = isEnabled, .restore = isEnabled, .getInfo = selected > 0};
}

RestoreLocation restoreLocationAt(int item) {
    const auto location = static_cast<RestoreLocation>(item);
    const bool isKnown = location >= RestoreLocation::Original && location < RestoreLocation::None;
    return isKnown ? location : RestoreLocation::None;
}

RestoreStep stepAfterAlert(RestoreLocation location, int returnCode) {
    if (location == RestoreLocation::Other)
        return RestoreStep::ChooseLocation;
    const int button = returnCode - firstButtonReturn;
    if (location == RestoreLocation::None || button < 0 || button >= std::ssize(steps[0]))
        return RestoreStep::Nothing;
    return steps[static_cast<std::size_t>(location)][button];
}

std::string restoreTarget(const std::string& path, const std::optional<std::string>& folder) {
    return folder ? appendPathComponent(*folder, lastPathComponent(path)) : path;
}

std::set<std::string> volumesOf(std::span<const std::string> paths) {
    std::set<std::string> volumes;
    for (const std::string& path : paths) {
        const std::vector<std::string> components = pathComponents(path);
        if (components.size() > 2 && components[1] == "Volumes")
            volumes.insert("/Volumes/" + components[2]);
    }
    return volumes;
}

bool RestoreCounts::setPendingCount(std::uint32_t count) {
    pendingCount_ = count;
    const bool isMore = initialPendingCount_ < count;
    if (isMore)
        initialPendingCount_ = count;
    return isMore;
}

int RestoreCounts::percent() const {
    constexpr std::uint64_t whole = 100;
    if (initialPendingCount_ == 0)
        return 0;
    return static_cast<int>(std::min(done() * whole / initialPendingCount_, whole));
}

} // namespace kelvane
