#include "Platform/FileDescriptor.h"
#include "Support/Logging.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/Terminal.h"

#include <csignal>

namespace kelvane::ctl {
namespace {

ExitStatus run(const std::vector<std::string>& words) {
    try {
        CommandLine line(words, commands);
        return line.asksForHelp() ? finishWith(helpText(commands)) : line.command().run(line);
    } catch (const CLI::CallForHelp&) {
        return finishWith(helpText(commands));
    } catch (const CLI::ParseError& error) {
        return complain(ExitStatus::Usage, std::string(error.what()) + " (see kelvanectl --help)");
    } catch (const std::exception& error) {
        return complain(ExitStatus::Usage, error.what());
    }
}

} // namespace
} // namespace kelvane::ctl

int main(int argumentCount, char* arguments[]) {
    kelvane::prepareProgram();
    std::signal(SIGPIPE, SIG_IGN); // whoever stops reading is told by the failure of the next write
    kelvane::KelvaneLogStart();
    const std::vector<std::string> words(arguments + (argumentCount > 0 ? 1 : 0), arguments + argumentCount);
    return static_cast<int>(kelvane::ctl::run(words));
}
