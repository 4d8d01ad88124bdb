#pragma once

#include "Host/Appearance/Appearance.h"
#include "Platform/Desktop/Authorization/Authorization.h"

#include <string>
#include <variant>

namespace kelvane::host {

// The command-line options. Options that were not given are empty.
struct Options {
    std::string pane;   // absolute
    std::string daemon; // absolute
    std::string log;    // absolute
    AuthorizationChoice authorization = AuthorizationChoice::Polkit;
    std::string tab;
    std::string screenshotFolder;
    Appearance appearance = Appearance::System;
    bool endsWhenPainted = false; // before any pane is loaded
};

// Returns the options, or the exit status when help or an error has been printed.
[[nodiscard]] std::variant<Options, int> readOptions(int argc, const char* const* argv);

} // namespace kelvane::host
