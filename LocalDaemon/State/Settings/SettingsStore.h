#pragma once

#include "LocalDaemon/Index/Alert.h"
#include "LocalDaemon/State/Settings/Settings.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace kelvane {

// The settings as a file, a binary property list that is replaced atomically, and a copy beside it:
// without the settings, files that the user has excluded would be backed up. Both carry a checksum. Any
// thread; the calls block on the disk.
class SettingsStore {
public:
    explicit SettingsStore(std::string path) : path_(std::move(path)), copyPath_(path_ + ".copy") {}

    struct Loading {
        Settings settings;
        std::string refusal;        // Why there are no usable settings; empty when there are.
        std::optional<Alert> alert; // Tells the user what was wrong with the file.
    };
    // Returns the defaults when neither file exists. A damaged file is renamed to "<path>.damaged" and
    // replaced by the copy. When the copy is damaged as well, the settings are the defaults in recover
    // mode, in which nothing is added to the backup or removed from it. Files that cannot be read are
    // left in place.
    [[nodiscard]] Loading load();

    // Returns the reason of a failure, empty on success. A file is replaced as a whole or not at all. Of
    // several concurrent calls the highest version is kept.
    [[nodiscard]] std::string save(const Settings& settings, std::uint64_t version);

private:
    [[nodiscard]] Loading inRecoverMode(const std::string& reason) const;

    const std::string path_;
    const std::string copyPath_;
    std::mutex mutex_;
    std::uint64_t savedVersion_ = 0;
};

} // namespace kelvane
