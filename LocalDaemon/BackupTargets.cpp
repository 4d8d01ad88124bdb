#include "LocalDaemon/BackupTargets.h"

#include "LocalDaemon/CleanPath.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <optional>
#include <sys/stat.h>

namespace kelvane {
namespace {

namespace fs = std::filesystem;

// restic compares each path with the pattern of each.
constexpr std::size_t mostEmptied = 100;

// What a person has put in the backup and is not reached from a folder that is in it.
std::vector<std::string> beginnings(const BackupRules& rules) {
    std::vector<std::string> paths = selectedPaths(rules);
    std::erase_if(paths, [&](const std::string& path) {
        return !verdictFor(rules, path).isIn() || (path != "/" && verdictFor(rules, folderOf(path)).isIn());
    });
    return paths;
}

// None: it has gone meanwhile.
std::optional<dev_t> deviceOf(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? std::optional(status.st_dev) : std::nullopt;
}

class Walk {
public:
    Walk(const BackupRules& rules, const std::atomic<bool>& stopping) : rules_(rules), stopping_(stopping) {}

    // What is in of a path that is in.
    void take(const std::string& path, BackupTargets& targets) {
        std::error_code error;
        const fs::file_status status = fs::symlink_status(path, error);
        if (status.type() == fs::file_type::not_found)
            return;
        std::vector<std::string> parts;
        if (!fs::is_directory(status) || isWhole(path, parts))
            targets.paths.push_back(path);
        else
            std::ranges::move(parts, std::back_inserter(targets.paths));
        targets.emptied = emptied_;
    }

private:
    // False: some of the folder is out, and `parts` has what is in: the folder itself when nothing else is.
    // Recursion is as deep as a path can be long.
    bool isWhole(const std::string& folder, std::vector<std::string>& parts) {
        bool isWhole = true;
        const auto device = deviceOf(folder);
        std::error_code error;
        for (fs::directory_iterator at(folder, error); !error && at != fs::directory_iterator() && !stopping_;
             at.increment(error)) {
            const std::string& path = at->path().native();
            const auto rule = ruleAt(rules_, path);
            // One that is in by a rule of its own may be another file system, which restic takes only when it
            // is named.
            isWhole = isWhole && !rule;
            if (rule && !rule->isIn())
                continue;
            if (!rule && deviceOf(path) != device)
                continue; // another file system is in only when somebody has said so
            std::vector<std::string> below;
            std::error_code unknown;
            if (!fs::is_directory(at->symlink_status(unknown)) || this->isWhole(path, below)) {
                parts.push_back(path);
            } else {
                isWhole = false;
                std::ranges::move(below, std::back_inserter(parts));
            }
        }
        if (!isWhole && parts.empty() && emptied_.size() < mostEmptied) {
            parts.push_back(folder);
            emptied_.push_back(folder);
        }
        return isWhole;
    }

    const BackupRules& rules_;
    const std::atomic<bool>& stopping_;
    std::vector<std::string> emptied_;
};

} // namespace

BackupTargets backupTargets(const BackupRules& rules, const std::string& path,
                            const std::atomic<bool>& stopping) {
    BackupTargets targets;
    Walk walk(rules, stopping);
    if (verdictFor(rules, path).isIn())
        walk.take(path, targets);
    else
        for (const std::string& beginning : beginnings(rules))
            if (beginning.starts_with(withSeparator(path)))
                walk.take(beginning, targets);
    return targets;
}

} // namespace kelvane
