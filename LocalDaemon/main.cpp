#include "Common/KelvSocket.h"
#include "LocalDaemon/LocalDaemon.h"
#include "Platform/FileDescriptor.h"
#include "Platform/PollLoop.h"
#include "Platform/SignalWatch.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <CLI/CLI.hpp>

#include <array>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>

namespace {

using namespace kelvane;

constexpr int failed = 1;
constexpr int wronglyUsed = 2;

// Always there, so that it turns logging on.
constexpr const char* verboseMarker = "/";

struct Arguments {
    std::string home = homeFolder();
    std::string socketPath;
    bool isVerbose = false;
};

int complain(const std::string& reason, int status) {
    std::cerr << "kelvane-local-daemon: " << reason << '\n';
    return status;
}

// None: go on.
std::optional<int> parse(int count, char** texts, Arguments& arguments) {
    CLI::App app("Watches over a folder and serves Kelvane's panes on this machine.", "kelvane-local-daemon");
    app.add_option("--home", arguments.home, "The folder to watch over; your home folder unless you say else")
        ->type_name("DIR")
        ->check(CLI::Validator(CLI::ExistingDirectory).description(""));
    app.add_option("--socket", arguments.socketPath,
                   "Where panes connect; in your runtime folder unless you say else")
        ->type_name("PATH");
    app.add_flag("--verbose", arguments.isVerbose, "Write what happens to standard error, not only problems");
    try {
        app.parse(count, texts);
    } catch (const CLI::Success& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        return complain(std::string(error.what()) + " (see --help)", wronglyUsed);
    }
    return std::nullopt;
}

std::optional<std::string> withoutLinks(const std::string& path) {
    std::array<char, PATH_MAX> resolved{};
    if (::realpath(path.c_str(), resolved.data()) == nullptr)
        return std::nullopt;
    return resolved.data();
}

int serve(const LocalDaemon::Options& options) {
    const auto loop = std::make_shared<PollLoop>();
    const SignalWatch signals(*loop, {SIGTERM, SIGINT, SIGHUP}, [&loop](int) { loop->quit(); });
    LocalDaemon daemon(options, loop, [loop] { loop->quit(); });
    if (const std::string refusal = daemon.start(); !refusal.empty())
        return complain(refusal, failed);
    const int status = loop->run();
    daemon.stop();
    KelvaneSocket::waitForThreads();
    return status;
}

int run(const Arguments& arguments) {
    const auto home = withoutLinks(arguments.home);
    if (!home)
        return complain("cannot find the folder " + arguments.home, wronglyUsed);
    const auto socketPath = arguments.socketPath.empty() ? defaultDaemonPath() : arguments.socketPath;
    if (!socketPath)
        return complain("there is no folder for the socket that only you can reach; name one with --socket",
                        failed);

    LocalDaemon::Options options;
    options.home = *home;
    options.socketPath = *socketPath;
    options.settingsPath = stateFolder() + "/kelvane/local-daemon-state.plist";
    options.configurationPath = configurationFolder() + "/kelvane/local-daemon.plist";
    return serve(options);
}

} // namespace

int main(int count, char** texts) {
    kelvane::occupyStandardDescriptors();
    // A terminal that has gone must not end the daemon at its next line.
    std::signal(SIGPIPE, SIG_IGN);
    const auto log = setLogSink([](const LogEntry& entry) { std::cerr << entry.line() + '\n'; });
    try {
        Arguments arguments;
        if (const auto status = parse(count, texts, arguments))
            return *status;
        KelvaneLogStart(arguments.isVerbose ? verboseMarker : logMarkerPath);
        return run(arguments);
    } catch (const std::exception& error) {
        return complain(error.what(), failed);
    }
}
