#include "Platform/Desktop/Opener.h"

#include "Foundation/Format.h"
#include "Platform/FileDescriptor.h"

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>
#include <QUrl>
#include <array>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kelvane {
namespace {

struct Spawned {
    pid_t pid = -1;
    int error = 0;
};

// In a session of its own and with the default signals: what is opened there outlives this program.
Spawned spawn(const std::string& program, const std::string& argument) {
    posix_spawn_file_actions_t files;
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    sigset_t reset;
    ::sigemptyset(&reset);
    ::posix_spawnattr_setsigmask(&attributes, &reset);
    for (const int signal : {SIGPIPE, SIGINT, SIGTERM})
        ::sigaddset(&reset, signal);
    ::posix_spawnattr_setsigdefault(&attributes, &reset);
    ::posix_spawnattr_setflags(&attributes,
                               POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    std::string name = program;
    std::string word = argument;
    std::array<char*, 3> arguments{name.data(), word.data(), nullptr};
    Spawned child;
    child.error = ::posix_spawnp(&child.pid, program.c_str(), &files, &attributes, arguments.data(), environ);
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&files);
    return child;
}

// None when it ended well. The numbers are those that desktops' openers agree upon.
std::optional<std::string> failureOf(int status) {
    if (!WIFEXITED(status))
        return "the opener was stopped";
    switch (WEXITSTATUS(status)) {
    case 0: return std::nullopt;
    case 2: return "there is no such file";
    case 3: return "no program is set up to open it";
    case 127: return "the desktop's opener is not installed";
    default: return "the opener failed with status " + std::to_string(WEXITSTATUS(status));
    }
}

} // namespace

// The openers that have not ended yet.
class DesktopOpener::Children : public QObject {
public:
    void add(pid_t pid, const std::string& subject, Failure failed) {
        FileDescriptor process(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
        if (!process)
            return; // it runs, and only how it ends will not be known
        auto* const end = new End{this, std::move(process)};
        const auto ended = [this, end, pid, subject, failed = std::move(failed)] {
            int status = 0;
            if (::waitpid(pid, &status, WNOHANG) != pid)
                return;
            end->notifier.setEnabled(false);
            end->deleteLater();
            if (const auto reason = failureOf(status))
                report(failed, subject, *reason);
        };
        connect(&end->notifier, &QSocketNotifier::activated, end, ended);
    }

    // From the event loop: nobody expects an answer inside the question.
    void report(const Failure& failed, const std::string& subject, const std::string& reason) {
        if (failed)
            QTimer::singleShot(0, this, [=] { failed("cannot open " + subject + ": " + reason); });
    }

private:
    struct End : QObject {
        End(QObject* owner, FileDescriptor process)
            : QObject(owner),
              descriptor(std::move(process)),
              notifier(descriptor.get(), QSocketNotifier::Read) {}

        const FileDescriptor descriptor;
        QSocketNotifier notifier;
    };
};

DesktopOpener::DesktopOpener(std::string program)
    : program_(std::move(program)), children_(std::make_unique<Children>()) {}

DesktopOpener::~DesktopOpener() = default;

void DesktopOpener::openURL(const std::string& url, Failure failed) {
    const QUrl parsed(QString::fromStdString(url));
    if (!parsed.isValid() || parsed.scheme().isEmpty())
        return children_->report(failed, url, "it is no web address");
    open(parsed.toEncoded().toStdString(), std::move(failed));
}

void DesktopOpener::openFile(const std::string& path, Failure failed) {
    if (!path.starts_with('/') || path.find('\0') != std::string::npos)
        return children_->report(failed, path, "it is no absolute path");
    open(path, std::move(failed));
}

void DesktopOpener::open(const std::string& subject, Failure failed) {
    const Spawned child = spawn(program_, subject);
    if (child.error == 0)
        children_->add(child.pid, subject, std::move(failed));
    else
        children_->report(failed, subject, program_ + ": " + errorText(child.error));
}

} // namespace kelvane
