#pragma once

#include "LocalDaemon/Index/Alert.h"
#include "LocalDaemon/State/Settings/Settings.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace kelvane {

// The settings as a file, a binary property list that is replaced as a whole, and a copy of it beside it, for
// without them what a person has excluded would be backed up. Both carry a checksum. Any thread; the calls
// block on the disk.
class SettingsStore {
public:
    explicit SettingsStore(std::string path) : path_(std::move(path)), copyPath_(path_ + ".copy") {}

    struct Loading {
        Settings settings;
        std::string refusal;        // why there are no settings that may be used; empty: they may
        std::optional<Alert> alert; // what was wrong with the file
    };
    // The defaults when neither file is there. A damaged file is set aside as "<path>.damaged" and the copy
    // takes its place. When the copy is damaged as well, the settings are the defaults in recover mode, in
    // which nothing is added to the backup and nothing leaves it. Files that the disk does not return stay.
    [[nodiscard]] Loading load();

    // Returns why it failed, empty when it did not. A file is replaced whole or stays as it was. Of several
    // at once the one with the highest version stays.
    [[nodiscard]] std::string save(const Settings& settings, std::uint64_t version);

private:
    [[nodiscard]] Loading inRecoverMode(const std::string& reason) const;

    const std::string path_;
    const std::string copyPath_;
    std::mutex mutex_;
    std::uint64_t savedVersion_ = 0;
};

} // namespace kelvane
