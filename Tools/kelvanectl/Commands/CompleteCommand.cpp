#include "Common/ExtensionProtocol.h"
#include "Common/FileNode/FileNode.h"
#include "Common/KelvProxy.h"
#include "Common/StandingAlert.h"
#include "Foundation/PathComponents.h"
#include "Platform/SpecialFolders.h"
#include "Tools/kelvanectl/Arguments/CompletionPoint.h"
#include "Tools/kelvanectl/Arguments/PathArgument.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/Connection/Session.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <algorithm>
#include <filesystem>

namespace kelvane::ctl {
namespace {

// The user waits at the prompt.
constexpr std::chrono::milliseconds longestWait(1000);

struct Candidate {
    std::string word;
    std::string description{};
};
using Candidates = std::vector<Candidate>;

Candidates optionsOf(const CLI::App& command) {
    Candidates candidates;
    for (const CLI::Option* const option : command.get_options())
        if (option->nonpositional() && !option->get_lnames().empty())
            candidates.push_back({"--" + option->get_lnames().front(), option->get_description()});
    return candidates;
}

Candidates namesIn(const CLI::App& command) {
    Candidates candidates;
    for (const CLI::App* const each : command.get_subcommands([](const CLI::App*) { return true; }))
        if (!each->get_group().empty())
            candidates.push_back({each->get_name(), each->get_description()});
    return candidates;
}

// Returns the typed folder: "~/" for "~/Doc".
std::string folderPart(const std::string& word) {
    return word.substr(0, word.rfind('/') + 1);
}

Candidates filesIn(const std::string& word, bool foldersOnly) {
    const std::string typed = folderPart(word);
    Candidates candidates;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(typed.empty() ? "." : expandingTilde(typed), error);
         !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const bool isFolder = entry->is_directory(error);
        if (isFolder || !foldersOnly)
            candidates.push_back({typed + entry->path().filename().string() + (isFolder ? "/" : "")});
    }
    return candidates;
}

// Returns nothing when the daemon does not answer, since an error would be printed into the command
// line.
Candidates askedFor(const CommandLine& line, const std::function<Candidates(Session& session)>& ask) {
    Session session(line);
    Candidates candidates = session.connect() ? ask(session) : Candidates();
    return session.stands() ? candidates : Candidates();
}

Candidates pathsIn(const CommandLine& line, const std::string& word) {
    const std::string typed = folderPart(word);
    const std::string folder =
        volumePathFromText(typed.empty() ? "." : expandingTilde(typed), Volumes::current());
    return askedFor(line, [&](Session& session) {
        Candidates candidates;
        for (const FileNodeRef& node :
             KelvaneFileNode::fileNodesForDictionaries(session.state().childrenDictionariesForPath(folder)))
            if (!node->fileName().empty())
                candidates.push_back(
                    {typed + node->fileName() + (node->isDirectory() ? "/" : ""), node->state()});
        return candidates;
    });
}

Candidates exclusions(const CommandLine& line) {
    const Volumes volumes = Volumes::current();
    return askedFor(line, [&](Session& session) {
        Candidates candidates;
        for (const FileNodeRef& node :
             KelvaneFileNode::fileNodesForDictionaries(session.state().proxy()->call<"excludedFiles:">("/")))
            candidates.push_back({volumes.realPath(node->path()).value_or(node->path())});
        return candidates;
    });
}

// Returns the ids of the alerts or, after an id, the actions of that alert.
Candidates alertWords(const CommandLine& line, const CompletionPoint& point) {
    return askedFor(line, [&](Session& session) {
        session.state().updateDaemonState();
        Candidates candidates;
        for (const StandingAlert& alert : session.state().alerts())
            if (point.arguments.empty())
                candidates.push_back({alert.id, alert.title});
            else if (alert.id == point.arguments.front() && point.arguments.size() == 1)
                for (const std::string& action : alert.actions)
                    candidates.push_back({std::string(verbOf(action))});
        return candidates;
    });
}

Candidates selectors() {
    Candidates candidates;
    for (const MethodDescription& method : KelvaneExtendedDaemonProtocol)
        candidates.push_back({std::string(method.selector)});
    return candidates;
}

// Arguments are identified by their names in the help.
Candidates wordsFor(CommandLine& line, const CompletionPoint& point, std::string_view kind) {
    if (kind == "PATH")
        return point.command->get_name() == "remove" && point.command->get_parent()->get_name() == "exclude"
                   ? exclusions(line)
                   : pathsIn(line, point.word);
    if (kind == "ID" || kind == "ACTION")
        return alertWords(line, point);
    if (kind == "DIR" || kind == "FILE" || kind == "SOCKET")
        return filesIn(point.word, kind == "DIR");
    return kind == "COMMAND" && point.arguments.empty() ? namesIn(line.program()) : Candidates();
}

// Returns the name of the argument that the word belongs to; the last argument may be repeatable.
std::string kindOf(const CompletionPoint& point) {
    if (point.option)
        return point.option->get_type_name();
    const auto positionals =
        point.command->get_options([](const CLI::Option* option) { return option->get_positional(); });
    if (positionals.empty())
        return {};
    const std::size_t count = point.arguments.size();
    const bool isBeyond = count >= positionals.size();
    if (isBeyond && !positionals.back()->get_allow_extra_args())
        return {};
    return positionals.at(isBeyond ? positionals.size() - 1 : count)->get_name(true);
}

Candidates candidatesAt(CommandLine& line, const CompletionPoint& point) {
    if (!point.option && point.takesOptions && point.word.starts_with('-'))
        return optionsOf(*point.command);
    const bool takesCommand = !point.option && point.arguments.empty();
    if (takesCommand && !point.command->get_subcommands([](const CLI::App*) { return true; }).empty())
        return namesIn(*point.command);
    if (takesCommand && point.command->get_prefix_command())
        return selectors();
    return wordsFor(line, point, kindOf(point));
}

struct Arguments {
    std::string line;
    std::string breaks;
};

// Prints one line per candidate, with a tab and a description if there is one.
ExitStatus complete(CommandLine& line, const Arguments& arguments) {
    const CompletionPoint point = completionPoint(line.program(), arguments.line);
    if (point.daemonPath)
        line.setDaemonPath(*point.daemonPath);
    line.setTimeout(longestWait);
    const std::string typed = point.before + point.word;
    const std::size_t known = typed.find_last_of(arguments.breaks);
    std::string text;
    for (const auto& [word, description] : candidatesAt(line, point)) {
        const bool isLine = std::ranges::all_of(word, [](char each) { return each != '\n' && each != '\t'; });
        if (!word.starts_with(point.word) || !isLine)
            continue;
        const std::string whole = point.before + word;
        text += known == std::string::npos ? whole : whole.substr(known + 1);
        text += (description.empty() ? "" : '\t' + printable(description)) + '\n';
    }
    return finishWith(text);
}

} // namespace

Action declareComplete(CLI::App& command) {
    const auto arguments = std::make_shared<Arguments>();
    command.add_option("LINE", arguments->line, "The command line up to the cursor")->required();
    command.add_option("--breaks", arguments->breaks, "Characters that separate words in the shell")
        ->type_name("CHARACTERS");
    return [arguments](CommandLine& line) { return complete(line, *arguments); };
}

} // namespace kelvane::ctl
