#pragma once

#include "Tools/kelvanectl/Arguments/CommandLine.h"

#include <atomic>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace kelvane::ctl {

// Writes the lines of `watch`, each at once and as a whole: time, event and detail as text, or one JSON
// object. On the main thread.
class EventWriter {
public:
    // `failed` is called once, when writing to standard output fails.
    EventWriter(bool json, std::function<void(int error)> failed);

    // `members`: a JSON object with the members other than time and event.
    void write(std::string_view event, const std::string& detail, const nlohmann::ordered_json& members);

    // Whether a write is blocked by a slow reader, or a line was written since the last call. Any
    // thread.
    [[nodiscard]] bool wasActive() { return wrote_.exchange(false) || writing_; }

private:
    [[nodiscard]] std::string line(std::string_view event, const std::string& detail,
                                   const nlohmann::ordered_json& members) const;

    const bool json_;
    const std::function<void(int error)> failed_;
    std::atomic<bool> writing_{false};
    std::atomic<bool> wrote_{false};
    bool broken_ = false;
};

} // namespace kelvane::ctl
