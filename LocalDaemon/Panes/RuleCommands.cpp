#include "LocalDaemon/Panes/RuleCommands.h"

#include "Foundation/Format.h"
#include "Support/Logging.h"

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

namespace kelvane {
namespace {

constexpr const char* refusedAlert = "rule_refused";

bool isMountPoint(const Volumes& volumes, const std::string& path) {
    return std::ranges::find(volumes.all(), path, &Volume::mountPoint) != volumes.all().end();
}

} // namespace

RuleCommands::RuleCommands(std::shared_ptr<DaemonState> state, std::shared_ptr<const KnownDisks> disks,
                           std::shared_ptr<const FileSystem> fileSystem)
    : state_(std::move(state)), disks_(std::move(disks)), fileSystem_(std::move(fileSystem)) {}

std::uint32_t RuleCommands::exclude(const Value& path) const {
    PathResolver resolver = disks_->pathResolver();
    const auto real = resolver.pathWithoutLinks(path.stringValue());
    if (!real || isMountPoint(resolver.volumes(), *real))
        return EINVAL;
    if (!fileSystem_->attributes(*real))
        return ENOENT;
    return change([&](PathRules& rules) {
        rules.exclusions.insert(*real);
        return 0U;
    });
}

std::uint32_t RuleCommands::unexclude(const Value& path) const {
    PathResolver resolver = disks_->pathResolver();
    const auto named = resolver.realPath(path.stringValue());
    const auto real = resolver.pathWithoutLinks(path.stringValue());
    if (!named || !real)
        return EINVAL;
    // A parent folder may have become a link since.
    return change([&](PathRules& rules) {
        return rules.exclusions.erase(*named) + rules.exclusions.erase(*real) > 0 ? 0U
                                                                                  : std::uint32_t{ENOENT};
    });
}

void RuleCommands::mark(const Array& paths, PathRules::Mark mark) const {
    const std::uint32_t error = errorOfMarking(paths, mark);
    if (error == 0)
        return state_->alerts()->withdraw(refusedAlert);
    const std::string reason = errorText(static_cast<int>(error));
    logWarning("Cannot change the selection of %@: %@", Value(paths), reason);
    // The call has no result for this error.
    if (error == ENOSPC)
        state_->alerts()->raise(
            {.kind = refusedAlert,
             .severity = "error",
             .title = "The selection was not changed.",
             .body = "There are too many rules to keep one more. Remove some of them first."});
}

std::uint32_t RuleCommands::errorOfMarking(const Array& paths, PathRules::Mark mark) const {
    PathResolver resolver = disks_->pathResolver();
    std::vector<std::string> real;
    for (const Value& path : paths) {
        const auto at = resolver.pathWithoutLinks(path.stringValue());
        if (!at)
            return EINVAL;
        if (mark == PathRules::Mark::Added && !fileSystem_->attributes(*at))
            return ENOENT;
        real.push_back(*at);
    }
    return change([&](PathRules& rules) {
        for (const std::string& path : real)
            rules.mark(path, mark);
        return 0U;
    });
}

// Returns ENOSPC without a change when the rules would become too large.
std::uint32_t RuleCommands::change(const std::function<std::uint32_t(PathRules&)>& change) const {
    std::uint32_t error = 0;
    state_->changeSettings([&](Settings& settings) {
        PathRules paths = settings.paths;
        error = change(paths);
        if (error == 0 && isTooLarge(paths) && paths.size() > settings.paths.size())
            error = ENOSPC;
        if (error == 0)
            settings.paths = std::move(paths);
    });
    return error;
}

void setAutomaticMode(DaemonState& state, bool isAutomatic) {
    state.changeSettings([&](Settings& settings) {
        if (!isAutomatic && !settings.hasManualSelection) {
            const Configuration& all = state.configuration();
            settings.paths = withManualSelection({.automaticMode = true,
                                                  .home = all.home,
                                                  .policy = all.policy,
                                                  .paths = settings.paths,
                                                  .volumes = all.volumes});
            settings.hasManualSelection = true;
        }
        settings.automaticMode = isAutomatic;
    });
}

} // namespace kelvane
