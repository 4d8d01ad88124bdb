#pragma once

#include <CLI/App.hpp>
#include <CLI/Formatter.hpp>
#include <string>

namespace kelvane::ctl {

// Help pages as kelvanectl shows them: the usage line says what has to be given, so that the list of options
// need not repeat it.
class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter();

    [[nodiscard]] std::string make_usage(const CLI::App* app, std::string name) const override;
    [[nodiscard]] std::string make_option_opts(const CLI::Option* option) const override;
    [[nodiscard]] std::string make_description(const CLI::App* app) const override;
};

} // namespace kelvane::ctl
