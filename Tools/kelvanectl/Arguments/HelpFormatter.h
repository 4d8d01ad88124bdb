#pragma once

#include <CLI/App.hpp>
#include <CLI/Formatter.hpp>
#include <string>

namespace kelvane::ctl {

// Formats the help pages: the usage line shows the required arguments, so the list of options does not
// repeat them.
class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter();

    [[nodiscard]] std::string make_usage(const CLI::App* app, std::string name) const override;
    [[nodiscard]] std::string make_option_opts(const CLI::Option* option) const override;
    [[nodiscard]] std::string make_description(const CLI::App* app) const override;
};

} // namespace kelvane::ctl
