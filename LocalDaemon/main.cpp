#include "Common/KelvSocket.h"
#include "LocalDaemon/LocalDaemon.h"
#include "LocalDaemon/State/Settings/ComputerNumber.h"
#include "Platform/FileDescriptor.h"
#include "Platform/Files/MountTable.h"
#include "Platform/PollLoop.h"
#include "Platform/Processes/DetachedProgram.h"
#include "Platform/SignalWatch.h"
#include "Platform/SpecialFolders.h"
#include "Support/LogFile.h"
#include "Support/Logging.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <malloc.h>
#include <mutex>
#include <poll.h>
#include <regex>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace kelvane;

constexpr int failed = 1;
constexpr int wronglyUsed = 2;

constexpr unsigned longestEnd = 25; // In seconds; restic has ten of them.
constexpr std::chrono::seconds timeForRestic(3);
// Each pane has threads of its own; an arena for each would retain the memory of its largest answer.
constexpr int mostArenas = 2;

constexpr mode_t ownersRights = 0700;

struct Arguments {
    Dictionary overrides; // Entries that override those of the configuration file.
    std::string socketPath;
    std::string logPath = defaultLogPath();
    bool isVerbose = false;
};

int complain(const std::string& reason, int status) {
    std::cerr << "kelvane-local-daemon: " << reason << '\n';
    return status;
}

// Logs the reason instead of only printing it, for a daemon that was not started in a terminal.
int refuse(const std::string& reason) {
    logError("%@", reason);
    return failed;
}

// Each of these options sets an entry of the configuration and overrides the file's.
struct Option {
    const char* name;
    std::string_view key;
    const char* type;
    const char* meaning;
};
constexpr Option textOptions[] = {
    {"--repository", "repository", "PLACE",
     "Folder of the repository, or its location (sftp:HOST:/DIR, rest:URL, s3:URL, rclone:REMOTE)"},
    {"--password-file", "passwordFile", "PATH",
     "File with the key of the repository; created if it does not exist"},
    {"--email", "userEmail", "ADDRESS", "Account that the settings window shows"},
    {"--server", "serverURL", "HOST", "Server that the settings window shows (default: localhost)"},
};
constexpr Option listOptions[] = {
    {"--volume", "volumes", "DIR", "Further folder to back up; repeatable"},
    {"--policy", "policyExcludeList", "PATTERN",
     "Pattern of what is not backed up, instead of the default list; repeatable"},
};
constexpr Option numberOptions[] = {
    {"--interval", "intervalMinutes", "MINUTES",
     "Minutes from the end of a backup to the next one (default: 15)"},
    {"--keep", "keepDays", "DAYS", "Days to keep replaced and deleted files (default: 30)"},
    {"--quota", "quotaMB", "MIB",
     "Size of the selected files above which nothing is backed up (default: 0, no limit)"},
    {"--computer", "computerNumber", "NUMBER", "Number of this computer in a shared repository"},
};

// Every user can read the arguments of a process.
bool tellsAPassword(const Value& place) {
    static const std::regex password("://[^/]*:[^/]*@");
    return std::regex_search(place.stringValue(), password);
}

void setOverride(Dictionary& overrides, const std::string& option, std::string_view key, const Value& value) {
    if (key == "repository" && tellsAPassword(value))
        throw CLI::ValidationError(option, "everybody on this machine could read the password here; set the "
                                           "repository in the configuration file");
    Value known = value;
    // A volume that is not mounted is accepted here: it is backed up from the first start at which it is
    // mounted, and until then the log says that it is not used.
    if (value.isArray()) {
        Array list = value.array();
        std::erase_if(list, [](const Value& each) { return each.stringValue().starts_with("/Volumes/"); });
        known = list;
    }
    const std::string fault = faultIn(Dictionary{{std::string(key), known}}, Volumes::current());
    if (!fault.empty())
        throw CLI::ValidationError(option, fault);
    overrides.set(key, value);
}

void addConfiguration(CLI::App& app, Dictionary& overrides) {
    // A relative path is resolved in the working directory.
    app.add_option_function<std::string>(
           "--home",
           [&overrides](const std::string& home) {
               setOverride(overrides, "--home", "homeFolder",
                           std::filesystem::absolute(home).lexically_normal().string());
           },
           "Folder to back up (default: your home folder)")
        ->type_name("DIR")
        ->check(CLI::Validator(CLI::ExistingDirectory).description(""));
    for (const Option& option : textOptions)
        app.add_option_function<std::string>(
               option.name,
               [&](const std::string& text) { setOverride(overrides, option.name, option.key, text); },
               option.meaning)
            ->type_name(option.type);
    for (const Option& option : numberOptions)
        app.add_option_function<std::uint32_t>(
               option.name,
               [&](std::uint32_t number) { setOverride(overrides, option.name, option.key, number); },
               option.meaning)
            ->type_name(option.type);
    for (const Option& option : listOptions)
        app.add_option_function<std::vector<std::string>>(
               option.name,
               [&](const std::vector<std::string>& texts) {
                   setOverride(overrides, option.name, option.key, Array(texts.begin(), texts.end()));
               },
               option.meaning)
            ->type_name(option.type);
}

// Returns no exit status when the daemon is to run.
std::optional<int> parse(int count, char** texts, Arguments& arguments) {
    CLI::App app("Backs up the files of a user with restic.", "kelvane-local-daemon");
    app.set_version_flag("--version", "kelvane-local-daemon " KELVANE_VERSION, "Show the program's version");
    addConfiguration(app, arguments.overrides);
    app.add_option("--socket", arguments.socketPath,
                   "Socket to listen on (default: kelvane/daemon.sock in your runtime folder)")
        ->type_name("PATH");
    app.add_option("--log", arguments.logPath,
                   "Log file (default: kelvane/daemon.log in your folder for state data)")
        ->type_name("PATH");
    app.add_flag("--verbose", arguments.isVerbose, "Log all activity");
    try {
        app.parse(count, texts);
    } catch (const CLI::Success& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        return complain(std::string(error.what()) + " (see --help)", wronglyUsed);
    }
    return std::nullopt;
}

// Exits the process when stopping takes too long because the repository's remote file system does not answer:
// restic can then neither be stopped nor clean up.
class EndWhileSilent {
public:
    EndWhileSilent(const std::string& folder, int status)
        : thread_([this, folder, status] {
              std::unique_lock guard(mutex_);
              if (!changed_.wait_for(guard, timeForRestic, [this] { return isOver_; }) &&
                  !silentMountAround(folder).empty())
                  ::_exit(status);
          }) {}
    ~EndWhileSilent() {
        {
            const std::scoped_lock guard(mutex_);
            isOver_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }
    EndWhileSilent(const EndWhileSilent&) = delete;
    EndWhileSilent& operator=(const EndWhileSilent&) = delete;

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isOver_ = false;
    std::thread thread_; // Last, since it uses the other members.
};

int serve(const LocalDaemon::Options& options) {
    const auto loop = std::make_shared<PollLoop>();
    const SignalWatch signals(*loop, {SIGTERM, SIGINT, SIGHUP}, [&loop](int) { loop->quit(); });
    LocalDaemon daemon(options, loop, [loop] { loop->quit(); });
    if (const std::string refusal = daemon.start(); !refusal.empty())
        return refuse(refusal);
    const int status = loop->run();
    ::alarm(longestEnd); // Ends the process when a disk that does not respond blocks a thread.
    const EndWhileSilent end(daemon.repositoryFolder(), status);
    daemon.stop();
    KelvaneSocket::waitForThreads();
    return status;
}

// A slow reader of standard error must not block the daemon: lines that do not fit are only in the log.
void writeToStandardError(std::string_view text) {
    pollfd room{STDERR_FILENO, POLLOUT, 0};
    while (!text.empty() && ::poll(&room, 1, 0) > 0 && (room.revents & POLLOUT) != 0) {
        const ssize_t written =
            ::write(STDERR_FILENO, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
        text.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : text.size());
    }
}

// Copies the log to standard error for the user who has started the daemon in a terminal.
LogSinkToken logTo(const std::string& path) {
    const auto log = std::make_shared<LogFile>(path);
    LogSinkToken token = setLogSink([log](const LogEntry& entry) {
        writeToStandardError(entry.line() + '\n');
        log->write(entry.line());
    });
    if (!log->error().empty())
        logError("The log %@ cannot be opened: %@", path, log->error());
    return token;
}

int run(const Arguments& arguments) {
    const auto socketPath = arguments.socketPath.empty() ? defaultDaemonPath() : arguments.socketPath;
    if (!socketPath)
        return complain("no folder for the socket: $XDG_RUNTIME_DIR is not usable and /tmp/kelvane-UID is "
                        "not private; specify a path with --socket",
                        failed);

    LocalDaemon::Options options;
    options.defaults = usualDefaults();
    options.indexPath = stateFolder() + "/kelvane/local-daemon-index";
    const ComputerNumber computer =
        computerNumber(configurationFolder() + "/kelvane/local-daemon.number", options.indexPath);
    if (!computer.refusal.empty())
        return refuse(computer.refusal);
    options.defaults.computerNumber = computer.number;
    options.overrides = arguments.overrides;
    options.defaults.ownFiles.insert(stateFolder() + "/kelvane");
    options.defaults.ownFiles.insert(arguments.logPath);
    for (unsigned older = 1; older < LogFile::Limits().files; ++older)
        if (std::string name = arguments.logPath + '.' + std::to_string(older); LogFile::mayReplace(name))
            options.defaults.ownFiles.insert(std::move(name));
    options.socketPath = *socketPath;
    options.settingsPath = stateFolder() + "/kelvane/local-daemon-state.plist";
    options.restoreJobsPath = stateFolder() + "/kelvane/local-daemon-restores";
    options.processesPath = stateFolder() + "/kelvane/local-daemon-processes";
    options.showRestoreWizard = [path = *socketPath] {
        const std::string failure =
            startDetached({findProgram("kelvane-settings").value_or("kelvane-settings"), "--daemon", path,
                           "--tab", "restore"});
        if (!failure.empty())
            logError("The restore window cannot be opened: %@", failure);
    };
    options.configurationPath = configurationFolder() + "/kelvane/local-daemon.plist";
    return serve(options);
}

} // namespace

int main(int count, char** texts) {
    kelvane::prepareProgram();
    ::mallopt(M_ARENA_MAX, mostArenas);
    // Neither a closed terminal nor a file size limit ends the daemon: the write fails instead.
    for (const int number : {SIGPIPE, SIGXFSZ})
        std::signal(number, SIG_IGN);
    ::umask(::umask(0) & ~ownersRights); // Otherwise it could not use the files that it creates.
    try {
        Arguments arguments;
        if (const auto status = parse(count, texts, arguments))
            return *status;
        KelvaneLogStart();
        if (arguments.isVerbose)
            setLogLevel(LogLevel::Debug);
        const LogSinkToken log = logTo(arguments.logPath);
        return run(arguments);
    } catch (const std::exception& error) {
        return complain(error.what(), failed);
    }
}
