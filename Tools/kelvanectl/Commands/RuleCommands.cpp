#include "Common/FileNode/FileNode.h"
#include "Common/KelvProxy.h"
#include "Foundation/Format.h"
#include "Support/PathHelpers.h"
#include "Tools/kelvanectl/Arguments/PathArgument.h"
#include "Tools/kelvanectl/Arguments/PathPattern.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/Connection/Session.h"
#include "Tools/kelvanectl/Output/JsonText.h"
#include "Tools/kelvanectl/Output/NodeTable.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

using Daemon = std::shared_ptr<KelvaneProxy>;

// What a pattern matches: files on the disk, or excluded paths. With None, patterns are not allowed.
enum class Patterns { None, OnDisk, Excluded };
// When to check whether the daemon knows a path. A method without a result needs an extra query: before
// adding a path, but after removing one, since a path that is missing on the disk may still be marked.
enum class Check { ByAnswer, Before, After };

struct Change {
    Patterns patterns;
    Check check;
    bool takesVolumes;
    std::uint32_t (*apply)(KelvaneProxy& daemon, const std::string& path); // Returns 0 or an errno value.
    std::string_view missing;                                              // The text for ENOENT.
};

std::uint32_t exclude(KelvaneProxy& daemon, const std::string& path) {
    return daemon.call<"excludeFileFromBackup:">(path);
}

std::uint32_t unexclude(KelvaneProxy& daemon, const std::string& path) {
    return daemon.call<"unexcludeFileFromBackup:">(path);
}

std::uint32_t include(KelvaneProxy& daemon, const std::string& path) {
    daemon.call<"addFileToBackup:">(path);
    return 0;
}

std::uint32_t uninclude(KelvaneProxy& daemon, const std::string& path) {
    daemon.call<"removeFileFromBackup:">(path);
    return 0;
}

constexpr Change addExclusion{.patterns = Patterns::OnDisk,
                              .check = Check::ByAnswer,
                              .takesVolumes = false,
                              .apply = exclude,
                              .missing = "there is no such file or folder"};
constexpr Change removeExclusion{.patterns = Patterns::Excluded,
                                 .check = Check::ByAnswer,
                                 .takesVolumes = true,
                                 .apply = unexclude,
                                 .missing = "it is not excluded"};
constexpr Change addInclusion{.patterns = Patterns::None,
                              .check = Check::Before,
                              .takesVolumes = true,
                              .apply = include,
                              .missing = {}};
constexpr Change removeInclusion{.patterns = Patterns::None,
                                 .check = Check::After,
                                 .takesVolumes = true,
                                 .apply = uninclude,
                                 .missing = {}};

struct Outcome {
    std::string path;
    std::string refusal;        // Empty on success.
    bool isFromPattern = false; // The path matched a pattern and was not typed itself.
};

std::string textFor(const Change& change, std::uint32_t code) {
    switch (code) {
    case ENOENT: return std::string(change.missing);
    case ENOSPC: return "there are too many rules; remove some of them first";
    default: return "the daemon refuses it: " + errorText(static_cast<int>(code));
    }
}

std::string refusal(const Change& change, const Daemon& daemon, const std::string& path) {
    const auto isKnown = [&] { return KelvaneFileNode::fileNodeForPath(path, daemon) != nullptr; };
    if (change.check == Check::Before && !isKnown())
        return unknownPath;
    const std::uint32_t code = change.apply(*daemon, path);
    if (code == ENOENT)
        return textFor(change, code);
    if ((code != 0 || change.check == Check::After) && !isKnown())
        return unknownPath;
    return code == 0 ? "" : textFor(change, code);
}

struct Request {
    std::string path; // A path or a pattern.
    bool isPattern = false;
    std::vector<std::string> matches{}; // Matching paths on the disk.
};

Request requestFrom(const std::string& text, const Change& change, const Volumes& volumes) {
    Request request{volumePathFromText(text, volumes)};
    if (!change.takesVolumes && kelv_isVolumePath(request.path))
        throw CLI::ValidationError(shownPath(request.path), "a whole volume cannot be excluded");
    const PathPattern pattern(request.path, volumes);
    request.isPattern = change.patterns != Patterns::None && pattern.isPattern();
    if (request.isPattern && change.patterns == Patterns::OnDisk)
        request.matches = pattern.matchesOnDisk();
    return request;
}

// Returns the excluded paths that match; only the path itself when a path with just this text is excluded.
std::vector<std::string> excludedMatches(const std::string& path, const Daemon& daemon,
                                         const Volumes& volumes) {
    const PathPattern pattern(path, volumes);
    std::vector<std::string> matches;
    for (const FileNodeRef& node :
         KelvaneFileNode::fileNodesForDictionaries(daemon->call<"excludedFiles:">("/"))) {
        if (node->path() == path)
            return {path};
        if (pattern.matches(node->path()))
            matches.push_back(node->path());
    }
    return matches;
}

std::vector<Outcome> outcomesOf(const Request& request, const Change& change, const Daemon& daemon,
                                const Volumes& volumes) {
    if (!request.isPattern)
        return {{request.path, refusal(change, daemon, request.path)}};
    std::vector<Outcome> outcomes;
    for (const std::string& path : change.patterns == Patterns::OnDisk
                                       ? request.matches
                                       : excludedMatches(request.path, daemon, volumes))
        outcomes.push_back({path, refusal(change, daemon, path), true});
    if (outcomes.empty())
        outcomes.push_back({request.path, change.patterns == Patterns::OnDisk
                                              ? "there is no file or folder that matches"
                                              : "no excluded path matches"});
    return outcomes;
}

ExitStatus finishWithOutcomes(const CommandLine& line, const std::vector<Outcome>& outcomes,
                              const Change& change) {
    auto json = nlohmann::ordered_json::array();
    std::string text; // The paths that matched a pattern.
    ExitStatus status = ExitStatus::Success;
    for (const auto& [path, refusal, isFromPattern] : outcomes) {
        json.push_back({{"path", path}, {"done", refusal.empty()}});
        if (!refusal.empty()) {
            json.back()["reason"] = refusal;
            status = complain(ExitStatus::Usage, shownPath(path) + ": " + refusal);
        } else if (isFromPattern) {
            text += shownPath(path) + '\n';
        }
    }
    if (!text.empty() && change.patterns == Patterns::OnDisk)
        text += "Excluded the paths above; files that match later are not excluded.\n";
    const ExitStatus written = finishWith(line.settings().json ? jsonText(json, true) : text);
    return status == ExitStatus::Success ? written : status;
}

ExitStatus apply(const CommandLine& line, const Change& change, const std::vector<std::string>& texts) {
    const Volumes volumes = Volumes::current();
    std::vector<Request> requests;
    for (const std::string& text : texts)
        requests.push_back(requestFrom(text, change, volumes));
    std::vector<Outcome> outcomes;
    const ExitStatus status = askDaemon(line, [&](Session& session) {
        for (const Request& request : requests)
            if (const Daemon daemon = session.state().proxy()) // `askDaemon` reports a lost connection.
                std::ranges::move(outcomesOf(request, change, daemon, volumes), std::back_inserter(outcomes));
    });
    return status == ExitStatus::Success ? finishWithOutcomes(line, outcomes, change) : status;
}

ExitStatus listExclusions(const CommandLine& line, Columns columns) {
    Value answer;
    const ExitStatus status = askDaemon(line, [&](Session& session) {
        if (const Daemon daemon = session.state().proxy())
            answer = daemon->call<"excludedFiles:">("/");
    });
    if (status != ExitStatus::Success)
        return status;
    const Volumes volumes = Volumes::current();
    std::vector<NodeRow> rows;
    for (const FileNodeRef& node : KelvaneFileNode::fileNodesForDictionaries(answer))
        rows.push_back({node, volumes.realPath(node->path()).value_or(node->path())});
    return finishWithNodes(line, rows, columns);
}

Action declareChange(CLI::App& command, const Change& change) {
    const auto paths = std::make_shared<std::vector<std::string>>();
    command
        .add_option("PATH", *paths,
                    change.patterns == Patterns::None ? "Files and folders" : "Files, folders and patterns")
        ->required();
    return [paths, &change](const CommandLine& line) { return apply(line, change, *paths); };
}

} // namespace

Action declareExcludeList(CLI::App& command) {
    const auto withFlags = std::make_shared<bool>(false);
    command.add_flag("-l,--long", *withFlags, "Show sizes in bytes, rules and backup flags, too");
    return [withFlags](const CommandLine& line) {
        return listExclusions(line, *withFlags ? Columns::WithFlags : Columns::Usual);
    };
}

Action declareExcludeAdd(CLI::App& command) {
    return declareChange(command, addExclusion);
}

Action declareExcludeRemove(CLI::App& command) {
    return declareChange(command, removeExclusion);
}

Action declareIncludeAdd(CLI::App& command) {
    return declareChange(command, addInclusion);
}

Action declareIncludeRemove(CLI::App& command) {
    return declareChange(command, removeInclusion);
}

} // namespace kelvane::ctl
