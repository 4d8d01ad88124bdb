#include "Platform/FileDescriptor.h"

#include <clocale>
#include <csignal>
#include <fcntl.h>

namespace kelvane {

void occupyStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (::fcntl(descriptor, F_GETFD) < 0)
            // open returns the lowest free number, which is this one.
            static_cast<void>(::open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY));
}

void prepareProgram() {
    occupyStandardDescriptors();
    std::signal(SIGCHLD, SIG_DFL); // if the parent ignored it, the exit status of children would be lost
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    std::setlocale(LC_CTYPE, ""); // an unknown locale leaves that of C
}

} // namespace kelvane
