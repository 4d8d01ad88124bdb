// kelvane-fake-daemon: a backup daemon that plays a script, for demos, screenshots and experiments.

#include "FakeDaemon/ScriptPlayer.h"
#include "Foundation/Format.h"
#include "Platform/FileDescriptor.h"
#include "Platform/Files/Volumes.h"
#include "Platform/SignalWatch.h"
#include "Platform/SocketClaim.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <poll.h>

namespace kelvane {
namespace {

struct Options {
    std::string socket = defaultDaemonPath().value_or(std::string());
    std::string script;
    bool isEmpty = false;
    bool hasExtensions = false;
};

// Passes the script to the player as it arrives, so that a pipe can send further commands.
void readScript(PollLoop& loop, PollLoop::Watch& watch, int descriptor, ScriptPlayer& player) {
    watch = loop.watchDescriptor(descriptor, POLLIN, [&watch, &player, descriptor] {
        std::array<char, 4096> block{};
        const ssize_t count = ::read(descriptor, block.data(), block.size());
        if (count > 0)
            return player.add({block.data(), static_cast<std::size_t>(count)});
        if (count < 0 && (errno == EINTR || errno == EAGAIN))
            return;
        watch.stop();
        player.end();
    });
}

int serve(const Options& options) {
    PollLoop loop;
    const SignalWatch signals(loop, {SIGTERM, SIGINT}, [&loop](int) { loop.quit(); });
    DaemonWorld world = options.isEmpty ? DaemonWorld() : demoWorld();
    if (options.hasExtensions)
        addDemoExtensions(world);
    world.bootVolume = Volumes::current().bootVolume().name; // The name that panes on this machine use.
    FakeDaemon daemon(options.socket, std::move(world));
    daemon.answerWith("terminate", [&loop](const Array&) {
        loop.quit();
        return Value();
    });
    FileDescriptor file;
    if (!options.script.empty() && options.script != "-") {
        file.reset(::open(options.script.c_str(), O_RDONLY | O_CLOEXEC));
        if (!file) {
            std::cerr << "kelvane-fake-daemon: " << options.script << ": " << errorText() << '\n';
            return 2;
        }
    }
    const SocketClaim claim(options.socket);
    if (!claim.refusal().empty()) {
        std::cerr << "kelvane-fake-daemon: " << claim.refusal() << '\n';
        return 1;
    }
    if (!daemon.start()) {
        std::cerr << "kelvane-fake-daemon: cannot listen at " << options.socket << ": " << errorText()
                  << '\n';
        return 1;
    }
    std::cout << "listening at " << options.socket << std::endl;
    ScriptPlayer player(daemon, loop);
    PollLoop::Watch watch;
    if (!options.script.empty())
        readScript(loop, watch, file ? file.get() : STDIN_FILENO, player);
    return loop.run();
}

} // namespace
} // namespace kelvane

int main(int argc, char** argv) {
    kelvane::prepareProgram();
    kelvane::Options options;
    CLI::App app(
        "A backup daemon that plays a script. Without one it shows a demo account until it is ended.");
    app.set_version_flag("--version", "kelvane-fake-daemon " KELVANE_VERSION, "Show the program's version");
    app.add_option("--socket", options.socket, "Where panes find it")
        ->capture_default_str()
        ->type_name("SOCKET");
    app.add_option("--script", options.script,
                   "JSON lines such as {\"state\": {\"paused\": true}} or {\"callback\": \"fileChanged:\", "
                   "\"arguments\": [\"/a\"]}; \"-\" for standard input")
        ->type_name("FILE");
    app.add_flag("--empty", options.isEmpty, "Start with an empty account instead of the demo account");
    app.add_flag("--extensions", options.hasExtensions,
                 "Name the extensions \"alerts\", \"schedule\" and \"verify\"");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        std::cerr << "kelvane-fake-daemon: " << error.what() << " (see --help)\n";
        return 2;
    }
    kelvane::KelvaneLogStart();
    return kelvane::serve(options);
}
