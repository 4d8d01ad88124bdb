#pragma once

#include "Platform/Desktop/Authorization/Authorization.h"

#include <string>

namespace kelvane {

// Where polkit looks for definitions of rights.
inline constexpr const char* policyFolder = "/usr/share/polkit-1/actions";

// The file that defines the right for polkit: an administrator must confirm it, and the confirmation is kept
// for some minutes.
[[nodiscard]] std::string policyText(const RightDefinition& right);

// Writes the file into the folder, which normally needs root. Returns why it failed, or empty on success.
[[nodiscard]] std::string installPolicy(const RightDefinition& right, const std::string& folder);

} // namespace kelvane
