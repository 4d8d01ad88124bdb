#include "Platform/Desktop/Opener.h"

#include "Foundation/Format.h"
#include "Platform/Processes/ChildProcess.h"

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>
#include <QUrl>
#include <cerrno>
#include <memory>
#include <optional>

namespace kelvane {
namespace {

constexpr int firstSignalStatus = 128; // `ChildProcess::exitStatus` adds it to the signal's number

// None on success. The openers of all desktops share these exit statuses.
std::optional<std::string> failureOf(const ChildProcess& opener, const std::string& program) {
    const int status = opener.exitStatus();
    if (!opener.hasExited())
        return program + (status > firstSignalStatus
                              ? " was killed by signal " + std::to_string(status - firstSignalStatus)
                              : " ended, and its exit status is unknown");
    switch (status) {
    case 0: return std::nullopt;
    case 2: return "no such file";
    case 3: return "no application is set up to open it";
    case 127: return "a program that " + program + " needs is not installed";
    default: return program + " failed with status " + std::to_string(status);
    }
}

} // namespace

// The openers that are still running.
class DesktopOpener::Children : public QObject {
public:
    void add(ChildProcess opener, const std::string& program, const std::string& subject, Failure failed) {
        if (opener.descriptor() < 0)
            return; // it runs; only its exit status stays unknown
        auto* const end = new End{this, std::move(opener)};
        const auto ended = [this, end, program, subject, failed = std::move(failed)] {
            if (!end->opener.hasEnded())
                return;
            end->notifier.setEnabled(false);
            end->deleteLater();
            if (const auto reason = failureOf(end->opener, program))
                report(failed, subject, *reason);
        };
        connect(&end->notifier, &QSocketNotifier::activated, end, ended);
    }

    // Reports from the event loop: callers expect no answer inside the call.
    void report(const Failure& failed, const std::string& subject, const std::string& reason) {
        if (failed)
            QTimer::singleShot(0, this, [=] { failed("cannot open " + subject + ": " + reason); });
    }

private:
    struct End : QObject {
        End(QObject* owner, ChildProcess process)
            : QObject(owner),
              opener(std::move(process)),
              notifier(opener.descriptor(), QSocketNotifier::Read) {}

        ChildProcess opener;
        QSocketNotifier notifier;
    };
};

DesktopOpener::DesktopOpener(std::string program)
    : program_(std::move(program)), children_(std::make_unique<Children>()) {}

DesktopOpener::~DesktopOpener() = default;

void DesktopOpener::openURL(const std::string& url, Failure failed) {
    const QUrl parsed(QString::fromStdString(url));
    if (!parsed.isValid() || parsed.scheme().isEmpty())
        return children_->report(failed, url, "not a web address");
    open(parsed.toEncoded().toStdString(), std::move(failed));
}

void DesktopOpener::openFile(const std::string& path, Failure failed) {
    if (!path.starts_with('/') || path.find('\0') != std::string::npos)
        return children_->report(failed, path, "not an absolute path");
    open(path, std::move(failed));
}

void DesktopOpener::open(const std::string& subject, Failure failed) {
    // The opened program must outlive this one and the terminal from which it may have been started.
    auto opener =
        ChildProcess::start({.arguments = {program_, subject}, .group = ChildCommand::Group::OwnSession},
                            {.input = ChildStreams::null});
    if (const int error = opener ? opener->startError() : errno; error != 0)
        children_->report(failed, subject, program_ + ": " + errorText(error));
    else
        children_->add(std::move(*opener), program_, subject, std::move(failed));
}

} // namespace kelvane
