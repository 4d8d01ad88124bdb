#include "Platform/Desktop/Authorization/AuthorizationForm.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr std::size_t pidPlace = 0;
constexpr std::size_t startTimePlace = 4;
constexpr std::size_t uidPlace = 12;
constexpr std::size_t usedSize = 16;
constexpr int startTimeField = 22;
constexpr int fieldBehindName = 3;

template <class Number>
void put(AuthorizationForm& form, std::size_t place, Number number) {
    for (std::size_t i = 0; i < sizeof number; ++i)
        form.at(place + i) = static_cast<std::uint8_t>(number >> (8 * i));
}

template <class Number>
Number take(std::span<const std::uint8_t> form, std::size_t place) {
    Number number = 0;
    for (std::size_t i = 0; i < sizeof number; ++i)
        number |= static_cast<Number>(Number{form[place + i]} << (8 * i));
    return number;
}

} // namespace

std::optional<ProcessIdentity> currentProcess() {
    std::ifstream file("/proc/self/stat");
    std::string line;
    std::getline(file, line);
    const std::size_t nameEnd = line.rfind(')'); // the name before it may contain blanks and parentheses
    if (nameEnd == std::string::npos)
        return std::nullopt;
    std::istringstream fields(line.substr(nameEnd + 1));
    std::string field;
    for (int i = fieldBehindName; i < startTimeField; ++i)
        fields >> field;
    ProcessIdentity process{static_cast<std::uint32_t>(::getpid()), 0, ::getuid()};
    if (!(fields >> process.startTime))
        return std::nullopt;
    return process;
}

AuthorizationForm authorizationForm(const ProcessIdentity& process) {
    AuthorizationForm form{};
    put(form, pidPlace, process.pid);
    put(form, startTimePlace, process.startTime);
    put(form, uidPlace, process.uid);
    return form;
}

std::optional<ProcessIdentity> processOfForm(std::span<const std::uint8_t> form) {
    if (form.size() != authorizationFormSize)
        return std::nullopt;
    const ProcessIdentity process{take<std::uint32_t>(form, pidPlace),
                                  take<std::uint64_t>(form, startTimePlace),
                                  take<std::uint32_t>(form, uidPlace)};
    const auto rest = form.subspan(usedSize);
    const bool isZeroFilled = std::ranges::all_of(rest, [](std::uint8_t byte) { return byte == 0; });
    if (process.pid == 0 || process.startTime == 0 || !isZeroFilled)
        return std::nullopt;
    return process;
}

} // namespace kelvane
