#include "LocalDaemon/Restore/Staging/NameClashes.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr const char* probe = "k\u00E9";
constexpr const char* aliases[] = {"K\u00E9", "ke\u0301"};

std::set<std::string> entriesOf(int folder) {
    std::set<std::string> entries;
    std::error_code error;
    std::filesystem::directory_iterator at("/proc/self/fd/" + std::to_string(folder), error);
    for (; !error && at != std::filesystem::directory_iterator(); at.increment(error))
        entries.insert(at->path().filename().string());
    return entries;
}

} // namespace

bool tellsNamesApart(int folder) {
    if (::mkdirat(folder, probe, S_IRWXU) != 0)
        return true;
    bool isFound = false;
    for (const char* const alias : aliases)
        isFound = isFound || ::faccessat(folder, alias, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
    ::unlinkat(folder, probe, AT_REMOVEDIR);
    return !isFound;
}

std::set<std::string> clashingNames(int folder, const std::vector<std::string>& names) {
    std::set<std::string> clashing;
    std::set<std::string> entries = entriesOf(folder);
    for (const std::string& name : names) {
        if (entries.contains(name))
            continue;
        const std::string aside = "clash-" + std::to_string(clashing.size());
        if (::renameat(folder, name.c_str(), folder, aside.c_str()) != 0)
            continue; // The file does not exist.
        std::set<std::string> left = entriesOf(folder);
        left.erase(aside);
        std::ranges::set_difference(entries, left, std::inserter(clashing, clashing.end()));
        clashing.insert(name);
        entries = std::move(left);
    }
    return clashing;
}

bool hasEntry(int folder, const std::string& name) {
    return entriesOf(folder).contains(name);
}

} // namespace kelvane
