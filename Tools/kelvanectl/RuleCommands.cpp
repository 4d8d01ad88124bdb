#include "Common/FileNode.h"
#include "Common/KelvProxy.h"
#include "Foundation/Format.h"
#include "Support/PathHelpers.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/JsonText.h"
#include "Tools/kelvanectl/NodeTable.h"
#include "Tools/kelvanectl/PathArgument.h"
#include "Tools/kelvanectl/Session.h"
#include "Tools/kelvanectl/Terminal.h"

#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

using Daemon = std::shared_ptr<KelvaneProxy>;

// When it turns out that the daemon does not know a path. What has no answer of its own needs a question:
// before something is added; after something was removed, for what is gone from the disk may still be marked.
enum class Check { ByAnswer, Before, After };

struct Change {
    std::string_view command;
    std::string_view action;
    Check check;
    bool takesVolumes;
    std::uint32_t (*apply)(KelvaneProxy& daemon, const std::string& path); // 0: done
};
constexpr Change changes[] = {
    {"exclude", "add", Check::ByAnswer, false,
     [](KelvaneProxy& daemon, const std::string& path) {
         return daemon.call<"excludeFileFromBackup:">(path);
     }},
    {"exclude", "remove", Check::ByAnswer, true,
     [](KelvaneProxy& daemon, const std::string& path) {
         return daemon.call<"unexcludeFileFromBackup:">(path);
     }},
    {"include", "add", Check::Before, true,
     [](KelvaneProxy& daemon, const std::string& path) {
         daemon.call<"addFileToBackup:">(path);
         return 0U;
     }},
    {"include", "remove", Check::After, true,
     [](KelvaneProxy& daemon, const std::string& path) {
         daemon.call<"removeFileFromBackup:">(path);
         return 0U;
     }},
};

struct Outcome {
    std::string path;
    std::string refusal; // empty: done
};

const Change& changeNamed(const CommandLine& line, std::string_view action) {
    for (const Change& change : changes)
        if (change.command == line.command().name && change.action == action)
            return change;
    throw CLI::ValidationError(std::string(line.command().name) + " has no action \"" + std::string(action) +
                                   '"',
                               CLI::ExitCodes::ExtrasError);
}

std::vector<std::string> volumePaths(const std::vector<std::string>& texts, const Change& change) {
    const Volumes volumes = Volumes::current();
    std::vector<std::string> paths;
    for (const std::string& text : texts) {
        paths.push_back(volumePathFromText(text, volumes));
        if (!change.takesVolumes && kelv_isVolumePath(paths.back()))
            throw CLI::ValidationError(paths.back(), "a whole volume cannot be excluded");
    }
    return paths;
}

std::string refusal(const Change& change, const Daemon& daemon, const std::string& path) {
    const auto isKnown = [&] { return KelvaneFileNode::fileNodeForPath(path, daemon) != nullptr; };
    if (change.check == Check::Before && !isKnown())
        return unknownPath;
    const std::uint32_t code = change.apply(*daemon, path);
    if ((code != 0 || change.check == Check::After) && !isKnown())
        return unknownPath;
    return code == 0 ? "" : formatText("the daemon refuses it (0x%x)", code);
}

ExitStatus finishWithOutcomes(const CommandLine& line, const std::vector<Outcome>& outcomes) {
    auto json = nlohmann::ordered_json::array();
    ExitStatus status = ExitStatus::Success;
    for (const auto& [path, refusal] : outcomes) {
        json.push_back({{"path", path}, {"done", refusal.empty()}});
        if (refusal.empty())
            continue;
        json.back()["reason"] = refusal;
        status = complain(ExitStatus::Usage, printableName(path) + ": " + refusal);
    }
    const ExitStatus written = line.settings().json ? finishWith(jsonText(json, true)) : ExitStatus::Success;
    return status == ExitStatus::Success ? written : status;
}

ExitStatus apply(const CommandLine& line, const Change& change, const std::vector<std::string>& texts) {
    if (texts.empty())
        throw CLI::RequiredError("PATH");
    const std::vector<std::string> paths = volumePaths(texts, change);
    std::vector<Outcome> outcomes;
    const ExitStatus status = askDaemon(line, [&](Session& session) {
        for (const std::string& path : paths)
            if (const Daemon daemon = session.state().proxy()) // gone: that is complained about
                outcomes.push_back({path, refusal(change, daemon, path)});
    });
    return status == ExitStatus::Success ? finishWithOutcomes(line, outcomes) : status;
}

ExitStatus listExclusions(const CommandLine& line) {
    Value answer;
    const ExitStatus status = askDaemon(line, [&](Session& session) {
        if (const Daemon daemon = session.state().proxy())
            answer = daemon->call<"excludedFiles:">("/");
    });
    if (status != ExitStatus::Success)
        return status;
    std::vector<NodeRow> rows;
    for (const FileNodeRef& node : KelvaneFileNode::fileNodesForDictionaries(answer))
        rows.push_back({node, node->path()});
    return finishWithNodes(line, rows);
}

} // namespace

ExitStatus runRules(CommandLine& line) {
    std::string action;
    std::vector<std::string> paths;
    line.parse([&](CLI::App& options) {
        options.add_option("ACTION", action)->required();
        options.add_option("PATH", paths);
    });
    const bool isList = line.command().name == "exclude" && action == "list";
    if (isList && !paths.empty())
        throw CLI::ExtrasError(paths);
    return isList ? listExclusions(line) : apply(line, changeNamed(line, action), paths);
}

} // namespace kelvane::ctl
