#pragma once

#include "Foundation/Value.h"
#include "LocalDaemon/State/KnownDisks.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace kelvane {

// What panes change in the rules. Any thread; they block on the disk, before and after the change and never
// with the state's mutex held. Saved when they return. Paths come as PathEntrance takes them, and the rule
// stands at the path without links: it holds however the file is reached.
class RuleCommands {
public:
    RuleCommands(std::shared_ptr<DaemonState> state, std::shared_ptr<const KnownDisks> disks,
                 std::shared_ptr<const FileSystem> fileSystem);

    // These answer 0, or errno's number: EINVAL for a path that makes no sense or a whole volume, which panes
    // do not exclude; ENOENT where nothing is, or for what is not excluded; ENOSPC when there are too many
    // rules.
    [[nodiscard]] std::uint32_t exclude(const Value& path) const;
    [[nodiscard]] std::uint32_t unexclude(const Value& path) const;
    // All or, which is logged, none of the paths: for the reasons above, but volumes may be added, and what
    // is gone may be removed.
    void mark(const Array& paths, PathRules::Mark mark) const;

private:
    [[nodiscard]] std::uint32_t errorOfMarking(const Array& paths, PathRules::Mark mark) const;
    [[nodiscard]] std::uint32_t change(const std::function<std::uint32_t(PathRules&)>& change) const;

    const std::shared_ptr<DaemonState> state_;
    const std::shared_ptr<const KnownDisks> disks_;
    const std::shared_ptr<const FileSystem> fileSystem_;
};

// Entering manual mode for the first time keeps what automatic mode backs up; later times find the manual
// selection as it was left. As the commands above.
void setAutomaticMode(DaemonState& state, bool isAutomatic);

} // namespace kelvane
