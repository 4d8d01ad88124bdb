#include "PaneTools/UserData.h"

#include "Platform/SpecialFolders.h"

#include <filesystem>
#include <system_error>

namespace kelvane::tools {
namespace {

struct DataFile {
    std::string (*folder)();
    const char* name;
};
// The beginnings of the names of files: with what is kept beside them, such as locks, what was set aside
// because it was damaged, and an index for each place of a repository.
constexpr DataFile dataFiles[] = {
    {configurationFolder, "com.kelvane.preferences.plist"},
    {stateFolder, "kelvane/local-daemon-"},
    {stateFolder, "kelvane/daemon.log"},
};
constexpr DataFile resticCache{cacheFolder, "kelvane/restic"};
constexpr DataFile dataFolders[] = {
    {configurationFolder, "kelvane"}, {stateFolder, "kelvane"}, {cacheFolder, "kelvane"}};

std::string pathOf(const DataFile& file) {
    return file.folder() + '/' + file.name;
}

std::vector<std::string> filesThatBeginWith(const std::string& path) {
    std::error_code error; // what cannot be listed is not there, or cannot be removed either
    std::vector<std::string> files;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::path(path).parent_path(), error))
        if (entry.path().string().starts_with(path))
            files.push_back(entry.path());
    return files;
}

} // namespace

std::vector<std::string> removeUserData() {
    std::vector<std::string> failures;
    std::error_code error;
    const auto remove = [&](const std::string& path) {
        std::filesystem::remove_all(path, error);
        if (error)
            failures.push_back("cannot remove " + path + ": " + error.message());
    };
    for (const DataFile& file : dataFiles)
        for (const std::string& path : filesThatBeginWith(pathOf(file)))
            remove(path);
    remove(pathOf(resticCache));
    for (const DataFile& folder : dataFolders)
        std::filesystem::remove(pathOf(folder), error); // one that still holds something stays
    return failures;
}

} // namespace kelvane::tools
