#pragma once

#include "Foundation/Value.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kelvane {

// The contents of a report to the support, and its account.
struct IncidentReport {
    std::string serverURL; // a host name, optionally with a port
    std::string mailtoName;
    std::string mailtoDomain;
    std::string userEmail;
    std::string version; // the pane's version
    std::string operatingSystem;
    std::string category;
    std::string comment;
    Value computerNumber; // absent when unknown

    // A report without an account is not sent.
    [[nodiscard]] bool hasAccount() const {
        return !userEmail.empty() && !computerNumber.isAbsent() && !serverURL.empty();
    }
    // The URL without a scheme.
    [[nodiscard]] std::string address() const;
    struct Field {
        std::string name;
        std::string contents;
    };
    // The form's fields in their order; the log follows them.
    [[nodiscard]] std::vector<Field> fields() const;
};

// `packedVersion` contains the digits of the version: two for the major, one each for the others.
[[nodiscard]] std::string operatingSystemText(std::uint32_t packedVersion);

} // namespace kelvane
