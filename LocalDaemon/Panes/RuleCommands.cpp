#include "LocalDaemon/Panes/RuleCommands.h"

#include "Foundation/Format.h"
#include "LocalDaemon/Rules/PathEntrance.h"
#include "Support/Logging.h"

#include <algorithm>
#include <cerrno>
#include <functional>

namespace kelvane {
namespace {

constexpr const char* refusedAlert = "rule_refused";

bool isMountPoint(const Volumes& volumes, const std::string& path) {
    return std::ranges::find(volumes.all(), path, &Volume::mountPoint) != volumes.all().end();
}

// ENOSPC, and nothing has changed, when the rules would become too large.
std::uint32_t changePaths(DaemonState& state, const std::function<std::uint32_t(PathRules&)>& change) {
    std::uint32_t error = 0;
    state.changeSettings([&](Settings& settings) {
        PathRules paths = settings.paths;
        error = change(paths);
        if (error == 0 && isTooLarge(paths) && paths.size() > settings.paths.size())
            error = ENOSPC;
        if (error == 0)
            settings.paths = std::move(paths);
    });
    return error;
}

std::uint32_t errorOfMarking(DaemonState& state, const FileSystem& fileSystem, const Array& paths,
                             PathRules::Mark mark) {
    PathEntrance entrance(state.volumes(fileSystem));
    std::vector<std::string> real;
    for (const Value& path : paths) {
        const auto at = entrance.pathWithoutLinks(path.stringValue());
        if (!at)
            return EINVAL;
        if (mark == PathRules::Mark::Added && !fileSystem.attributes(*at))
            return ENOENT;
        real.push_back(*at);
    }
    return changePaths(state, [&](PathRules& rules) {
        for (const std::string& path : real)
            rules.mark(path, mark);
        return 0U;
    });
}

} // namespace

std::uint32_t excludeFile(DaemonState& state, const FileSystem& fileSystem, const Value& path) {
    PathEntrance entrance(state.volumes(fileSystem));
    const auto real = entrance.pathWithoutLinks(path.stringValue());
    if (!real || isMountPoint(entrance.volumes(), *real))
        return EINVAL;
    if (!fileSystem.attributes(*real))
        return ENOENT;
    return changePaths(state, [&](PathRules& rules) {
        rules.exclusions.insert(*real);
        return 0U;
    });
}

std::uint32_t unexcludeFile(DaemonState& state, const FileSystem& fileSystem, const Value& path) {
    PathEntrance entrance(state.volumes(fileSystem));
    const auto named = entrance.realPath(path.stringValue());
    const auto real = entrance.pathWithoutLinks(path.stringValue());
    if (!named || !real)
        return EINVAL;
    // A folder on the way may have become a link since.
    return changePaths(state, [&](PathRules& rules) {
        return rules.exclusions.erase(*named) + rules.exclusions.erase(*real) > 0 ? 0U
                                                                                  : std::uint32_t{ENOENT};
    });
}

void setAutomaticMode(DaemonState& state, bool isAutomatic) {
    state.changeSettings([&](Settings& settings) {
        if (!isAutomatic && !settings.hasManualSelection) {
            const Configuration& all = state.configuration();
            settings.paths = withManualSelection({true, all.home, all.policy, settings.paths, all.volumes});
            settings.hasManualSelection = true;
        }
        settings.automaticMode = isAutomatic;
    });
}

void markFiles(DaemonState& state, const FileSystem& fileSystem, const Array& paths, PathRules::Mark mark) {
    const std::uint32_t error = errorOfMarking(state, fileSystem, paths, mark);
    if (error == 0)
        return state.alerts()->withdraw(refusedAlert);
    const std::string reason = errorText(static_cast<int>(error));
    KelvaneSystemLog("What is backed up stays as it is (%@): %@", reason, Value(paths));
    // The call has no answer that could say so.
    if (error == ENOSPC)
        state.alerts()->raise({refusedAlert, "error", "What is backed up stays as it is.",
                               "There are too many rules to keep one more. Remove some of them first."});
}

} // namespace kelvane
