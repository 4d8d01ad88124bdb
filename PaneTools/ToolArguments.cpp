#include "PaneTools/ToolArguments.h"

#include "Platform/FileDescriptor.h"

#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sysexits.h>
#include <unistd.h>

namespace kelvane::tools {

std::optional<std::uint32_t> decimalNumber(std::string_view text) {
    std::uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

bool areSwitchArguments(int count, char** arguments, std::string_view word) {
    return count == 4 && arguments[1] == std::string_view("0") && decimalNumber(arguments[2]) == ::getuid() &&
           arguments[3] == word;
}

bool printsVersion(int count, char** arguments, const char* name) {
    if (count != 2 || arguments[1] != std::string_view("--version"))
        return false;
    std::printf("%s %s\n", name, KELVANE_VERSION);
    return true;
}

int complain(const char* name, const std::string& reason, int status) {
    std::fprintf(stderr, "%s: %s\n", name, reason.c_str());
    return status;
}

int runSwitch(int count, char** arguments, const char* name, const char* word, std::string (*operation)()) {
    prepareProgram();
    std::signal(SIGPIPE, SIG_IGN);
    if (printsVersion(count, arguments, name))
        return EXIT_SUCCESS;
    if (!areSwitchArguments(count, arguments, word))
        return complain(name, "usage: " + std::string(name) + " 0 UID " + word + ", with your own user id",
                        EX_USAGE);
    const std::string failure = operation();
    return failure.empty() ? EXIT_SUCCESS : complain(name, failure, EX_UNAVAILABLE);
}

} // namespace kelvane::tools
