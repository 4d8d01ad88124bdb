#include "Platform/FileDescriptor.h"
#include "Support/Logging.h"
#include "Tools/kelvanectl/Arguments/CommandLine.h"
#include "Tools/kelvanectl/Commands.h"

#include <csignal>

int main(int argumentCount, char* arguments[]) {
    kelvane::prepareProgram();
    std::signal(SIGPIPE, SIG_IGN); // A closed pipe is noticed by the failure of the next write.
    kelvane::KelvaneLogStart();
    const std::vector<std::string> words(arguments + (argumentCount > 0 ? 1 : 0), arguments + argumentCount);
    return static_cast<int>(kelvane::ctl::CommandLine(kelvane::ctl::commands).run(words));
}
