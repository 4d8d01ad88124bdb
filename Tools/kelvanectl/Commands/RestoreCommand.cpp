#include "Common/FileNode/FileNode.h"
#include "Common/KelvProxy.h"
#include "Common/RestoreStatus.h"
#include "Foundation/Format.h"
#include "Foundation/PathComponents.h"
#include "Foundation/Unicode.h"
#include "Tools/kelvanectl/Arguments/PathArgument.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/Connection/Session.h"
#include "Tools/kelvanectl/Output/JsonText.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

namespace kelvane::ctl {
namespace {

constexpr std::uint32_t latestVersion = 0;

struct Job {
    std::string path;
    std::string target;
    std::uint32_t number = 0; // 0 for a refused job.
    std::uint32_t status = restorestatus::waiting;
    std::vector<std::string> failures{};
};

const char* wordFor(const Job& job) {
    if (job.number == 0)
        return "refused";
    switch (job.status) {
    case restorestatus::finished: return "restored";
    case restorestatus::incomplete: return "incomplete";
    case restorestatus::cancelled: return "cancelled";
    case restorestatus::unknown: return "unknown";
    case restorestatus::waiting: return "waiting";
    default: return "running";
    }
}

// A parent folder that is a link now may have been a folder when it was backed up, and is then still in
// the backup.
bool hasLinkOnTheWay(const std::string& path, const Volumes& volumes) {
    const std::string folder = pathFromText(deleteLastPathComponent(volumes.realPath(path).value_or(path)));
    std::error_code error;
    return std::filesystem::weakly_canonical(folder, error) != folder;
}

bool isInBackup(Session& session, const std::string& path) {
    const FileNodeRef node = KelvaneFileNode::fileNodeForPath(path, session.state().proxy());
    return node && !node->version().isAbsent();
}

// Quotes the path so that most shells pass exactly these bytes.
std::string quotedBytes(std::string_view path) {
    std::string text = "$'";
    for (const char each : path) {
        const auto byte = static_cast<unsigned char>(each);
        const bool isPlain = byte >= ' ' && byte < 0x7F && each != '\'' && each != '\\';
        text += isPlain ? std::string(1, each) : formatText("\\x%02x", unsigned{byte});
    }
    return text + '\'';
}

// A name may be the printed form of another one. The name that is in the backup is taken; when both are,
// the command fails.
ExitStatus resolve(const CommandLine& line, std::vector<std::string>& texts, const Volumes& volumes) {
    std::vector<PathReadings> readings;
    for (const std::string& text : texts)
        readings.push_back(pathReadings(text, volumes));
    if (std::ranges::none_of(readings, [](const PathReadings& each) { return each.asPrinted.has_value(); })) {
        std::ranges::transform(readings, texts.begin(), &PathReadings::asTyped);
        return ExitStatus::Success;
    }
    std::string doubtful;
    const auto realPath = [&](const std::string& path) { return volumes.realPath(path).value_or(path); };
    const ExitStatus status = askDaemon(line, [&](Session& session) {
        for (std::size_t at = 0; at < texts.size(); ++at) {
            const auto& [typed, printed] = readings[at];
            const bool isPrinted = printed && isInBackup(session, *printed);
            const bool isTyped = printed && isInBackup(session, typed);
            if (isPrinted && isTyped)
                doubtful = texts[at] + " is ambiguous: write " + realPath(typed) +
                           " for the file with exactly this name, or " +
                           quotedBytes(pathFromText(realPath(*printed))) +
                           " for the file whose name is displayed as " + texts[at];
            texts[at] = isPrinted             ? *printed
                        : printed && !isTyped ? volumePathFromText(texts[at], volumes)
                                              : typed;
        }
    });
    return status == ExitStatus::Success && !doubtful.empty() ? complain(ExitStatus::Usage, doubtful)
                                                              : status;
}

std::vector<Job> jobsFor(const std::vector<std::string>& paths, const std::optional<std::string>& folder,
                         const Volumes& volumes) {
    std::vector<Job> jobs;
    std::set<std::string> targets;
    for (const std::string& path : paths) {
        const std::string target =
            folder ? appendPathComponent(volumePathFromText(*folder, volumes), lastPathComponent(path))
                   : path;
        if (!targets.insert(target).second)
            throw CLI::ValidationError(target, "two of the paths would be restored there");
        jobs.push_back({path, target});
    }
    return jobs;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

// Returns the paths that cannot be restored. While not even the root is in the backup, the daemon has
// not listed the repository yet, and its jobs wait for that.
std::vector<std::string> missingPaths(Session& session, const std::vector<Job>& jobs,
                                      const Volumes& volumes) {
    std::vector<std::string> missing;
    for (const Job& job : jobs)
        if (!isInBackup(session, job.path) && !hasLinkOnTheWay(job.path, volumes))
            missing.push_back(job.path);
    if (!missing.empty() && !isInBackup(session, volumes.volumePath("/")))
        missing.clear();
    return missing;
}

void order(Session& session, std::vector<Job>& jobs) {
    for (Job& job : jobs)
        if (const auto daemon = session.state().proxy()) { // `askDaemon` reports a lost connection.
            job.number = daemon->call<"restoreFile:toPath:version:priority:">(
                job.path, job.target, latestVersion, restorestatus::defaultPriority);
            if (job.number == 0)
                job.failures = linesOf(
                    daemon->call<"stringValueForProfileKey:">(restorestatus::failuresKey(0)).stringValue());
        }
}

void updateStatus(Session& session, Job& job) {
    const auto daemon = session.state().proxy();
    if (!daemon)
        return;
    const std::uint32_t status = daemon->call<"getRestoreJobStatus:">(job.number);
    if (restorestatus::hasEnded(status))
        job.failures = linesOf(
            daemon->call<"stringValueForProfileKey:">(restorestatus::failuresKey(job.number)).stringValue());
    job.status = status;
}

bool isOpen(const Job& job) {
    return job.number != 0 && !restorestatus::hasEnded(job.status);
}

// Prints why the restore waits, or the progress of listing the repository, when it has changed and at most
// once a minute.
class WaitReport {
public:
    void tell(Session& session) {
        session.state().updateDaemonState();
        std::string text; // The last such alert is the most specific one.
        for (const StandingAlert& alert : session.state().alerts())
            if (alert.id == restorestatus::waitAlert || alert.id == restorestatus::listingAlert)
                text = alert.title + ' ' + alert.text;
        if (!text.empty())
            tell(text);
    }

private:
    void tell(const std::string& text) {
        const auto now = std::chrono::steady_clock::now();
        if (text == last_ || now < next_)
            return;
        last_ = text;
        next_ = now + std::chrono::minutes(1);
        complain(ExitStatus::Success, text);
    }

    std::string last_;
    std::chrono::steady_clock::time_point next_;
};

ExitStatus waitForEnd(const CommandLine& line, std::vector<Job>& jobs) {
    std::vector<Job> seen;
    WaitReport report;
    const ExitStatus status = askUntil(line, [&](Session& session) {
        report.tell(session);
        seen = jobs;
        for (Job& job : seen)
            if (isOpen(job))
                updateStatus(session, job);
        return std::ranges::none_of(seen, isOpen);
    });
    jobs = std::move(seen);
    return status;
}

ExitStatus complainOf(const std::vector<Job>& jobs) {
    ExitStatus status = ExitStatus::Success;
    for (const Job& job : jobs) {
        for (const std::string& failure : job.failures)
            status = complain(ExitStatus::Incomplete, failure);
        if (job.number == 0 && job.failures.empty())
            status =
                complain(ExitStatus::Incomplete, shownPath(job.path) + ": the daemon refuses to restore it");
        else if (job.number != 0 && restorestatus::hasEnded(job.status) &&
                 job.status != restorestatus::finished && job.failures.empty())
            status = complain(ExitStatus::Incomplete, shownPath(job.path) + ": " + wordFor(job));
    }
    return status;
}

ExitStatus report(const CommandLine& line, const std::vector<Job>& jobs) {
    auto json = nlohmann::ordered_json::array();
    std::string text;
    for (const Job& job : jobs) {
        json.push_back(
            {{"path", job.path}, {"target", job.target}, {"job", job.number}, {"status", wordFor(job)}});
        if (!job.failures.empty())
            json.back()["failures"] = job.failures;
        text +=
            "job " + std::to_string(job.number) + "  " + wordFor(job) + "  " + shownPath(job.target) + '\n';
    }
    const ExitStatus written = finishWith(line.settings().json ? jsonText(json, true) : text);
    const ExitStatus status = complainOf(jobs);
    return status == ExitStatus::Success ? written : status;
}

struct Arguments {
    std::vector<std::string> paths;
    std::optional<std::string> folder;
    bool waits = false;
};

ExitStatus restore(const CommandLine& line, const Arguments& arguments) {
    const Volumes volumes = Volumes::current();
    std::vector<std::string> paths = arguments.paths;
    if (const ExitStatus status = resolve(line, paths, volumes); status != ExitStatus::Success)
        return status;
    std::vector<Job> jobs = jobsFor(paths, arguments.folder, volumes);
    std::vector<std::string> missing;
    ExitStatus status = askDaemon(line, [&](Session& session) {
        missing = missingPaths(session, jobs, volumes);
        if (missing.empty())
            order(session, jobs);
    });
    if (status == ExitStatus::Success)
        for (const std::string& path : missing)
            status = complain(ExitStatus::Failed, shownPath(path) + ": it is not in the backup");
    if (status == ExitStatus::Success && arguments.waits)
        status = waitForEnd(line, jobs);
    return status == ExitStatus::Success ? report(line, jobs) : status;
}

} // namespace

Action declareRestore(CLI::App& command) {
    const auto arguments = std::make_shared<Arguments>();
    command.add_option("PATH", arguments->paths, "Path to restore")->required();
    command.add_option("--to", arguments->folder, "Restore into this folder (default: the original place)")
        ->type_name("DIR");
    command.add_flag("--wait", arguments->waits, "Wait until everything is restored");
    return [arguments](const CommandLine& line) { return restore(line, *arguments); };
}

} // namespace kelvane::ctl
