#pragma once

#include "Host/Appearance/Appearance.h"
#include "Platform/Desktop/Authorization/Authorization.h"

#include <string>
#include <variant>

namespace kelvane::host {

// What was typed. Texts that were not given are empty.
struct Options {
    std::string pane;   // absolute
    std::string daemon; // absolute
    std::string log;    // absolute
    AuthorizationChoice authorization = AuthorizationChoice::Polkit;
    std::string tab;
    std::string screenshotFolder;
    Appearance appearance = Appearance::System;
    bool endsWhenPainted = false; // before a pane is loaded
};

// The options, or the status to end with: help and mistakes have been written out then.
[[nodiscard]] std::variant<Options, int> readOptions(int argc, const char* const* argv);

} // namespace kelvane::host
