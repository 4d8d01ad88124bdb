#include "PaneTools/UserData.h"

#include "Platform/SpecialFolders.h"

#include <filesystem>
#include <system_error>

namespace kelvane::tools {
namespace {

std::vector<std::string> filesThatBeginWith(const std::string& path) {
    std::error_code error; // Ignored: a folder that cannot be listed has no files that could be removed.
    std::vector<std::string> files;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::path(path).parent_path(), error))
        if (entry.path().string().starts_with(path))
            files.push_back(entry.path());
    return files;
}

} // namespace

std::vector<std::string> removeUserData() {
    // Prefixes of file names, which also match related files: locks, older logs, damaged files that were set
    // aside, and the index of each repository.
    const std::string files[] = {configurationFolder() + "/com.kelvane.preferences.plist",
                                 stateFolder() + "/kelvane/local-daemon-", defaultLogPath()};
    const std::string folders[] = {configurationFolder() + "/kelvane", stateFolder() + "/kelvane",
                                   cacheFolder() + "/kelvane"};
    std::vector<std::string> failures;
    std::error_code error;
    const auto remove = [&](const std::string& path) {
        std::filesystem::remove_all(path, error);
        if (error)
            failures.push_back("cannot remove " + path + ": " + error.message());
    };
    for (const std::string& file : files)
        for (const std::string& path : filesThatBeginWith(file))
            remove(path);
    remove(cacheFolder() + "/kelvane/restic");
    for (const std::string& folder : folders)
        std::filesystem::remove(folder, error); // Fails for a folder that is not empty.
    return failures;
}

} // namespace kelvane::tools
