#include "Tools/kelvanectl/Arguments/HelpFormatter.h"

namespace kelvane::ctl {
namespace {

constexpr std::size_t firstColumn = 24;

} // namespace

HelpFormatter::HelpFormatter() {
    column_width(firstColumn);
    label("SUBCOMMAND", "COMMAND");
    label("OPTIONS", "OPTION...");
    label("Positionals", "Arguments");
}

std::string HelpFormatter::make_description(const CLI::App* app) const {
    return app->get_description() + "\n\n";
}

// CLI11 does not show raw arguments, since it has no option for them.
std::string HelpFormatter::make_usage(const CLI::App* app, std::string name) const {
    std::string usage = CLI::Formatter::make_usage(app, std::move(name));
    if (app->get_prefix_command())
        usage.insert(usage.find('\n'), " SELECTOR [ARGUMENT...]");
    return usage;
}

std::string HelpFormatter::make_option_opts(const CLI::Option* option) const {
    const bool hasValue = option->get_type_size() != 0 && !option->get_positional();
    return hasValue ? ' ' + option->get_type_name() : "";
}

} // namespace kelvane::ctl
