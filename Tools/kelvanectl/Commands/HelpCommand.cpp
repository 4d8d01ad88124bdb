#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/Output/Terminal.h"

namespace kelvane::ctl {
namespace {

ExitStatus showHelp(CommandLine& line, const std::vector<std::string>& names) {
    CLI::App* command = &line.program();
    std::string namesBefore;
    for (const std::string& name : names) {
        CLI::App* const next = subcommandNamed(*command, name);
        if (!next)
            throw CLI::ValidationError(command->get_name() + " has no command \"" + name + '"',
                                       CLI::ExitCodes::ExtrasError);
        namesBefore += (namesBefore.empty() ? "" : " ") + command->get_name();
        command = next;
    }
    return finishWith(command->help(namesBefore));
}

} // namespace

Action declareHelp(CLI::App& command) {
    const auto names = std::make_shared<std::vector<std::string>>();
    command.add_option("COMMAND", *names, "A command, and one of its actions (default: all commands)");
    return [names](CommandLine& line) { return showHelp(line, *names); };
}

} // namespace kelvane::ctl
