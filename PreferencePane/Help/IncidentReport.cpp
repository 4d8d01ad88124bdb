#include "PreferencePane/Help/IncidentReport.h"

#include "Foundation/Format.h"
#include "Foundation/PathComponents.h"

namespace kelvane {
namespace {

constexpr const char* reportPage = "/Manage/ReportError.aspx";
constexpr const char* subject = "User incident report";

} // namespace

std::string IncidentReport::address() const {
    return appendPathComponent(serverURL, reportPage);
}

std::vector<IncidentReport::Field> IncidentReport::fields() const {
    return {
        {"to", mailtoName},
        {"to-domain", mailtoDomain},
        {"subject", subject},
        {"from", userEmail},
        {"version", version},
        {"os", operatingSystem},
        {"category", category},
        {"comment", comment},
        // Signed, as the server expects.
        {"serial", formatText("%d", computerNumber.uint32Value())},
    };
}

std::string operatingSystemText(std::uint32_t packedVersion) {
    const auto digit = [packedVersion](unsigned shift) { return (packedVersion >> shift) & 15U; };
    return formatText("Mac OS X %d.%d.%d", digit(12) * 10 + digit(8), digit(4), digit(0));
}

} // namespace kelvane
