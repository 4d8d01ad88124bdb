#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// The rules that the user has set, by path. Paths are real, without links in their parent folders.
struct PathRules {
    enum class Mark { Removed, Added };

    std::set<std::string, std::less<>> exclusions;  // Used in automatic mode.
    std::map<std::string, Mark, std::less<>> marks; // Used in manual mode.

    // Marks a folder with all its contents, so the marks below it are removed. Removing a path that was
    // not added leaves no mark. The path must be absolute.
    void mark(const std::string& path, Mark mark);
    // Returns about how many bytes the rules take.
    [[nodiscard]] std::size_t size() const;

    friend bool operator==(const PathRules&, const PathRules&) = default;
};

// The rules that decide which files are backed up. A value; the functions below use only the rules and
// never access the disk.
struct BackupRules {
    bool automaticMode = true;
    std::string home;
    // Wildcard patterns of the exclusion policy. They match real paths with a separator appended.
    std::vector<std::string> policy;
    PathRules paths;
    std::vector<std::string> volumes = {}; // Additional folders that automatic mode backs up.
    // Mount points of disks that are not mounted: their current contents are not what was backed up, and
    // are ignored.
    std::set<std::string, std::less<>> absentDisks = {};
    // Paths that a backup itself changes, excluded like the policy. These are not patterns: an asterisk
    // is literal, and case is significant.
    std::set<std::string, std::less<>> ownFiles = {};

    friend bool operator==(const BackupRules&, const BackupRules&) = default;
};

struct Verdict {
    enum class Reason {
        // These select the file.
        Home,
        Added,
        // These do not select the file.
        Excluded,
        Removed,
        Policy,
        OutsideHome,
        NotAdded,
        // On a different file system than the selected folder: a backup does not descend into mount
        // points.
        OtherFileSystem,
        AbsentDisk, // On a disk that is not mounted.
        NoFile,     // Not a file, folder or link: it has no contents to back up.
    };

    Reason reason;
    std::string rule; // The path or pattern that decides; empty when there is none.

    [[nodiscard]] bool isIn() const { return reason == Reason::Home || reason == Reason::Added; }
    friend bool operator==(const Verdict&, const Verdict&) = default;
};

// Returns whether a file at an absolute path is selected, by which rule, and why. Automatic mode selects
// the home folder and the volumes except for exclusions and the policy, manual mode the added paths
// except for those removed below them and the policy. The closest rule at or above the path decides, and
// at one path the user's rule precedes the policy. Never returns OtherFileSystem or NoFile, which
// require access to the disk.
[[nodiscard]] Verdict verdictFor(const BackupRules& rules, std::string_view path);

// Returns the rule at exactly this path; none when its parent folder decides.
[[nodiscard]] std::optional<Verdict> ruleAt(const BackupRules& rules, std::string_view path);

// Returns whether the user's rules decide differently for something below the path than for the path
// itself.
[[nodiscard]] bool isPartial(const BackupRules& rules, std::string_view path, bool isIn);

// Returns the paths that the user or the configuration has selected; another rule may exclude some of
// them.
[[nodiscard]] std::vector<std::string> selectedPaths(const BackupRules& rules);

// Returns whether the rules select anything at all.
[[nodiscard]] bool selectsAnything(const BackupRules& rules);

// Returns the manual selection that equals the automatic selection, with the existing marks.
[[nodiscard]] PathRules withManualSelection(const BackupRules& automatic);

// Returns the paths whose rules differ; "/" after a change of the mode.
[[nodiscard]] std::set<std::string> changedRules(const BackupRules& before, const BackupRules& now);

} // namespace kelvane
