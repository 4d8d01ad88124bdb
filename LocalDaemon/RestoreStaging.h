#pragma once

#include "Platform/ChildProgram.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace kelvane {

// Where files of a restore come in before they take their places: a folder beside those places, so that a
// rename is all that is left to do. Nothing in a folder of this name is ever backed up.
inline constexpr std::string_view stagingPrefix = ".kelvane-restore-";

struct StagingPlace {
    enum class Kind {
        Ready,    // `folder` is where a staging folder can be made
        Contents, // not here, but perhaps in the folders of what is to be restored
        Nowhere,  // `reason` says why
    };
    Kind kind = Kind::Nowhere;
    std::string folder;
    std::string reason;
};
// For an absolute path that something is to be restored to.
[[nodiscard]] StagingPlace stagingPlaceFor(const std::string& target, bool isFolder);

// Removes a folder with all that is in it, also what nobody may write in. Follows no link. False, and the
// first reason is logged, when something is left, or may be: the folder around it is not there, as on a disk
// that is not mounted. Stopped, it leaves what it has not come to, and logs nothing.
bool removeStaging(const std::string& folder, const StopSignal* stop = nullptr);

// How many bytes a file system still takes from this user.
[[nodiscard]] std::uint64_t freeSpaceAt(const std::string& folder);

} // namespace kelvane
