#pragma once

#include "Platform/Desktop/Authorization/Authorization.h"

#include <string>

namespace kelvane {

// Where polkit looks for the rights that it knows.
inline constexpr const char* policyFolder = "/usr/share/polkit-1/actions";

// The file that makes the right known to polkit: an administrator has to confirm it, and the confirmation is
// kept for a while.
[[nodiscard]] std::string policyText(const RightDefinition& right);

// Writes it into the folder, which only root can on a common system. Says why it could not, empty when it
// could.
[[nodiscard]] std::string installPolicy(const RightDefinition& right, const std::string& folder);

} // namespace kelvane
