#pragma once

#include "LocalDaemon/Settings.h"

#include <cstdint>
#include <mutex>
#include <string>

namespace kelvane {

// The settings as a file, a binary property list that is replaced as a whole. Any thread; the calls block on
// the disk.
class SettingsStore {
public:
    explicit SettingsStore(std::string path) : path_(std::move(path)) {}

    struct Loading {
        Settings settings;
        std::string refusal; // why the file cannot be read just now; empty when the settings are what holds
    };
    // The defaults when there is no file. One that makes no sense is set aside as "<path>.damaged", and that
    // is logged. One that the disk does not give out stays: nobody's rules are forgotten for that.
    [[nodiscard]] Loading load();

    // Returns why it failed, empty when it did not; then the file is as it was. Of several at once the one
    // with the highest version stays.
    [[nodiscard]] std::string save(const Settings& settings, std::uint64_t version);

private:
    const std::string path_;
    std::mutex mutex_;
    std::uint64_t savedVersion_ = 0;
};

} // namespace kelvane
