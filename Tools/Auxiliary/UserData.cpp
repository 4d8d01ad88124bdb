#include "Tools/Auxiliary/UserData.h"

#include "Platform/SpecialFolders.h"

#include <filesystem>
#include <system_error>

namespace kelvane::tools {
namespace {

struct DataFile {
    std::string (*folder)();
    const char* name;
};
// With what is kept beside them: locks, and what was set aside because it was damaged.
constexpr DataFile dataFiles[] = {
    {configurationFolder, "com.kelvane.preferences.plist"},
    {configurationFolder, "com.kelvane.preferences.plist.lock"},
    {configurationFolder, "com.kelvane.preferences.plist.damaged"},
    {stateFolder, "kelvane/local-daemon-state.plist"},
    {stateFolder, "kelvane/local-daemon-state.plist.damaged"},
    {stateFolder, "kelvane/local-daemon-state.plist.lock"},
    {stateFolder, "kelvane/local-daemon-index"},
    {stateFolder, "kelvane/local-daemon-restores"},
    {stateFolder, "kelvane/daemon.log"},
    {stateFolder, "kelvane/daemon.log.1"},
    {stateFolder, "kelvane/daemon.log.2"},
};
constexpr DataFile resticCache{cacheFolder, "kelvane/restic"};
constexpr DataFile dataFolders[] = {
    {configurationFolder, "kelvane"}, {stateFolder, "kelvane"}, {cacheFolder, "kelvane"}};

std::string pathOf(const DataFile& file) {
    return file.folder() + '/' + file.name;
}

} // namespace

std::vector<std::string> removeUserData() {
    std::vector<std::string> failures;
    std::error_code error;
    for (const DataFile& file : dataFiles) {
        std::filesystem::remove(pathOf(file), error);
        if (error)
            failures.push_back("cannot remove " + pathOf(file) + ": " + error.message());
    }
    std::filesystem::remove_all(pathOf(resticCache), error);
    if (error)
        failures.push_back("cannot remove " + pathOf(resticCache) + ": " + error.message());
    for (const DataFile& folder : dataFolders)
        std::filesystem::remove(pathOf(folder), error); // one that still holds something stays
    return failures;
}

} // namespace kelvane::tools
