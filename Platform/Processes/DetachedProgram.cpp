#include "Platform/Processes/DetachedProgram.h"

#include "Foundation/Format.h"
#include "Platform/FileDescriptor.h"

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sstream>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace kelvane {
namespace {

// Gives the program the default signal actions and an empty signal mask, not those of this process. Between
// fork and exec only system calls are safe.
[[noreturn]] void runProgram(char* const* arguments, int failure) {
    for (int number = 1; number < NSIG; ++number)
        ::signal(number, SIG_DFL);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::dup2(::open("/dev/null", O_RDONLY), STDIN_FILENO);
    ::execvp(arguments[0], arguments);
    const int error = errno;
    [[maybe_unused]] const ssize_t written = ::write(failure, &error, sizeof error);
    ::_exit(1);
}

} // namespace

// The intermediate process ends at once, so that the program is adopted by init or a subreaper.
std::string startDetached(std::vector<std::string> arguments) {
    std::vector<char*> pointers;
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        return errorText();
    const FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    const pid_t between = ::fork();
    if (between < 0)
        return errorText();
    if (between == 0) {
        ::setsid();
        if (::fork() == 0)
            runProgram(pointers.data(), writing.get());
        ::_exit(0);
    }
    writing.reset();
    while (::waitpid(between, nullptr, 0) < 0 && errno == EINTR) {
    }
    int error = 0;
    return ::read(reading.get(), &error, sizeof error) == sizeof error
               ? arguments.front() + ": " + errorText(error)
               : "";
}

std::optional<std::string> findProgram(const std::string& name) {
    std::array<char, PATH_MAX> path{};
    const ssize_t size = ::readlink("/proc/self/exe", path.data(), path.size());
    const std::string program(path.data(), size < 0 ? 0 : static_cast<std::size_t>(size));
    const std::string own = program.substr(0, program.rfind('/'));
    const char* const others = std::getenv("PATH");
    std::istringstream folders(own + ':' + own + "/..:" + (others ? others : ""));
    for (std::string folder; std::getline(folders, folder, ':');) {
        folder.append("/").append(name);
        if (std::error_code error; folder.starts_with('/') && ::access(folder.c_str(), X_OK) == 0 &&
                                   std::filesystem::is_regular_file(folder, error))
            return folder;
    }
    return std::nullopt;
}

} // namespace kelvane
