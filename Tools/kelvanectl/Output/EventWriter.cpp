#include "Tools/kelvanectl/Output/EventWriter.h"

#include "Tools/kelvanectl/Output/JsonText.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <array>
#include <cerrno>
#include <ctime>
#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

using Clock = std::chrono::system_clock;

// Returns "12:03:04.567" in local time, or "2025-01-02T11:03:04.567Z".
std::string timeText(Clock::time_point now, bool forPrograms) {
    const std::time_t seconds = Clock::to_time_t(std::chrono::floor<std::chrono::seconds>(now));
    const auto milliseconds =
        std::chrono::floor<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm parts{};
    static_cast<void>(forPrograms ? ::gmtime_r(&seconds, &parts) : ::localtime_r(&seconds, &parts));
    std::array<char, 64> text{};
    const std::size_t length = forPrograms
                                   ? std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts)
                                   : std::strftime(text.data(), text.size(), "%H:%M:%S", &parts);
    std::snprintf(text.data() + length, text.size() - length, ".%03d%s", static_cast<int>(milliseconds),
                  forPrograms ? "Z" : "");
    return text.data();
}

} // namespace

EventWriter::EventWriter(bool json, std::function<void(int error)> failed)
    : json_(json), failed_(std::move(failed)) {}

void EventWriter::write(std::string_view event, const std::string& detail,
                        const nlohmann::ordered_json& members) {
    if (broken_)
        return;
    const std::string text = line(event, detail, members);
    writing_ = true;
    broken_ = !writeOutput(text);
    writing_ = false;
    wrote_ = true;
    if (broken_)
        failed_(errno);
}

std::string EventWriter::line(std::string_view event, const std::string& detail,
                              const nlohmann::ordered_json& members) const {
    constexpr std::size_t column = 16;
    const std::string time = timeText(Clock::now(), json_);
    if (json_) {
        auto object = nlohmann::ordered_json::object({{"time", time}, {"event", event}});
        object.update(members);
        return jsonText(object, true);
    }
    std::string text = time + "  " + std::string(event);
    if (!detail.empty())
        text.append(column - std::min(column - 1, event.size()), ' ');
    return text + printable(detail) + '\n';
}

} // namespace kelvane::ctl
