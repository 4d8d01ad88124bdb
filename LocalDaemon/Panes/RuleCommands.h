#pragma once

#include "Foundation/Value.h"
#include "LocalDaemon/State/KnownDisks.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace kelvane {

// Changes to the rules by panes. Any thread; they block on the disk before and after the change, and
// never with the state's mutex held. Changes are saved before they return. Paths are resolved by
// PathResolver, and the rule is set for the path without links, so that it applies however the file is
// reached.
class RuleCommands {
public:
    RuleCommands(std::shared_ptr<DaemonState> state, std::shared_ptr<const KnownDisks> disks,
                 std::shared_ptr<const FileSystem> fileSystem);

    // These return 0 or an error number: EINVAL for an invalid path or a whole volume, which panes do
    // not exclude; ENOENT for a missing file, or one that is not excluded; ENOSPC when there are too
    // many rules.
    [[nodiscard]] std::uint32_t exclude(const Value& path) const;
    [[nodiscard]] std::uint32_t unexclude(const Value& path) const;
    // Marks all paths or, with a log message, none. The errors are as above, but volumes may be added,
    // and missing files may be marked as removed.
    void mark(const Array& paths, PathRules::Mark mark) const;

private:
    [[nodiscard]] std::uint32_t errorOfMarking(const Array& paths, PathRules::Mark mark) const;
    [[nodiscard]] std::uint32_t change(const std::function<std::uint32_t(PathRules&)>& change) const;

    const std::shared_ptr<DaemonState> state_;
    const std::shared_ptr<const KnownDisks> disks_;
    const std::shared_ptr<const FileSystem> fileSystem_;
};

// The first change to manual mode keeps what automatic mode backs up; later ones use the last manual
// selection. Threads and blocking are as above.
void setAutomaticMode(DaemonState& state, bool isAutomatic);

} // namespace kelvane
