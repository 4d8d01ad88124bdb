#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// What a person has laid down, path by path. Real paths, without links in the folders on the way.
struct PathRules {
    enum class Mark { Removed, Added };

    std::set<std::string, std::less<>> exclusions;  // count in automatic mode
    std::map<std::string, Mark, std::less<>> marks; // count in manual mode

    // What is said of a folder holds for everything in it: the marks below it go. Removing what was not added
    // leaves no mark. The path is absolute.
    void mark(const std::string& path, Mark mark);
    // About how many bytes it takes to keep them.
    [[nodiscard]] std::size_t size() const;

    friend bool operator==(const PathRules&, const PathRules&) = default;
};

// What decides which files are backed up. A value; everything below works on it alone and never looks at the
// disk.
struct BackupRules {
    bool automaticMode = true;
    std::string home;
    // Wildcard patterns for real paths with a separator behind them: what nobody wants in a backup.
    std::vector<std::string> policy;
    PathRules paths;
    std::vector<std::string> volumes = {}; // further folders that automatic mode backs up
    // Mount points of disks that are away: what stands there is not what was backed up, and is left alone.
    std::set<std::string, std::less<>> absentDisks = {};
    // The paths of what a backup itself changes, left out as by the policy. No patterns: a star in such a
    // name is meant, and another file's name may differ by case alone.
    std::set<std::string, std::less<>> ownFiles = {};

    friend bool operator==(const BackupRules&, const BackupRules&) = default;
};

struct Verdict {
    enum class Reason {
        // in
        Home,
        Added,
        // out
        Excluded,
        Removed,
        Policy,
        OutsideHome,
        NotAdded,
        OtherFileSystem, // than what was added: nothing goes down into what is mounted below
        AbsentDisk,      // it belongs on a disk that is away
        NoFile,          // nor folder nor link: there is nothing in it to keep
    };

    Reason reason;
    std::string rule; // the path or pattern that decides; empty when there is none

    [[nodiscard]] bool isIn() const { return reason == Reason::Home || reason == Reason::Added; }
    friend bool operator==(const Verdict&, const Verdict&) = default;
};

// Whether a file at an absolute path is to be in the backup, by which rule, and why. In automatic mode that
// is the home folder and the volumes less exclusions and policy, in manual mode what was added less what was
// removed below it and policy. The nearest rule on the way up decides, and at one path a person's before the
// policy's. Gives neither
// OtherFileSystem nor NoFile, which only the disk knows.
[[nodiscard]] Verdict verdictFor(const BackupRules& rules, std::string_view path);

// The rule that stands at this very path. None: it is as the folder around it.
[[nodiscard]] std::optional<Verdict> ruleAt(const BackupRules& rules, std::string_view path);

// Whether a person's rules say another thing of something below the path than of the path itself.
[[nodiscard]] bool isPartial(const BackupRules& rules, std::string_view path, bool isIn);

// The paths that a person, or the configuration, has put in; some of them may be out by another rule.
[[nodiscard]] std::vector<std::string> selectedPaths(const BackupRules& rules);

// Whether the rules put anything in at all.
[[nodiscard]] bool selectsAnything(const BackupRules& rules);

// The manual selection that holds what automatic mode holds, and what has been marked beforehand.
[[nodiscard]] PathRules withManualSelection(const BackupRules& automatic);

// The paths at which another rule stands now; "/" after a change of the mode.
[[nodiscard]] std::set<std::string> changedRules(const BackupRules& before, const BackupRules& now);

} // namespace kelvane
