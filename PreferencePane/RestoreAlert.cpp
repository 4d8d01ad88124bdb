#include "PreferencePane/RestoreAlert.h"

#include "Common/RestoreStatus.h"

#include <vector>

namespace kelvane {

bool endsRestoreProgress(std::string_view alert) {
    constexpr std::size_t reasonField = 4;
    std::vector<std::string_view> fields;
    while (true) {
        const std::size_t bar = alert.find('|');
        fields.push_back(alert.substr(0, bar));
        if (bar == std::string_view::npos)
            break;
        alert.remove_prefix(bar + 1);
    }
    return fields.size() > reasonField && fields.front() == restoreprogress::closingAlert &&
           fields[reasonField].empty();
}

} // namespace kelvane
