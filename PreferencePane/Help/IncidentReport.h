#pragma once

#include "Foundation/Value.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kelvane {

// What a report to the support says, and about whom.
struct IncidentReport {
    std::string serverURL; // a host's name, perhaps with a port
    std::string mailtoName;
    std::string mailtoDomain;
    std::string userEmail;
    std::string version; // of the pane
    std::string operatingSystem;
    std::string category;
    std::string comment;
    Value computerNumber; // absent when nobody is there to tell it

    // One without is not sent.
    [[nodiscard]] bool hasAccount() const {
        return !userEmail.empty() && !computerNumber.isAbsent() && !serverURL.empty();
    }
    // Without a scheme.
    [[nodiscard]] std::string address() const;
    struct Field {
        std::string name;
        std::string contents;
    };
    // The form's, in their order; the log comes behind them.
    [[nodiscard]] std::vector<Field> fields() const;
};

// Of the version's packed digits, two for the major one and one each for the others.
[[nodiscard]] std::string operatingSystemText(std::uint32_t packedVersion);

} // namespace kelvane
