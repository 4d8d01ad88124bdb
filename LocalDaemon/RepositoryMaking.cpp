#include "LocalDaemon/RepositoryMaking.h"

#include "LocalDaemon/Configuration.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <vector>

namespace kelvane {
namespace {

namespace fs = std::filesystem;

constexpr const char* lostAndFound = "lost+found";
constexpr const char* unfinished = ".kelvane-new";
constexpr const char* config = "config"; // restic looks for it to tell whether there is a repository

ResticOutcome failed(const std::string& path, const std::error_code& error) {
    return {ResticTrouble::Failed, false, path + ": " + error.message()};
}

ResticOutcome initialize(const Restic& restic, const StopSignal& stop) {
    Restic::Call call;
    call.arguments = {"init"};
    return restic.run(call, stop);
}

// Beside the folder, which is not there yet.
ResticOutcome makeBeside(RepositoryPlace place, const std::string& folder, const StopSignal& stop) {
    std::error_code error;
    place.location = folder + unfinished;
    fs::remove_all(place.location, error);
    ResticOutcome made = initialize(Restic(place), stop);
    if (made.succeeded())
        fs::rename(place.location, folder, error);
    return error ? failed(place.location, error) : made;
}

// The folder may be a mount point, or stand where nothing can be made beside it.
ResticOutcome makeInside(RepositoryPlace place, const std::string& folder, const StopSignal& stop) {
    std::error_code error;
    place.location = folder + '/' + unfinished;
    fs::remove_all(place.location, error);
    ResticOutcome made = initialize(Restic(place), stop);
    if (!made.succeeded())
        return made;
    std::vector<std::string> names;
    for (fs::directory_iterator at(place.location, error); !error && at != fs::directory_iterator();
         at.increment(error))
        names.push_back(at->path().filename().string());
    std::partition(names.begin(), names.end(), [](const std::string& name) { return name != config; });
    for (const std::string& name : names)
        if (!error)
            fs::rename(place.location + '/' + name, folder + '/' + name, error);
    if (!error)
        fs::remove(place.location, error);
    return error ? failed(place.location, error) : made;
}

} // namespace

bool isOccupied(const std::string& folder) {
    std::error_code error;
    if (fs::status(folder, error).type() == fs::file_type::not_found)
        return false;
    for (fs::directory_iterator at(folder, error); !error && at != fs::directory_iterator();
         at.increment(error))
        if (const fs::path name = at->path().filename(); name != lostAndFound && name != unfinished)
            return true;
    return static_cast<bool>(error);
}

ResticOutcome makeRepository(const Restic& restic, const StopSignal& stop) {
    const std::string folder = localFolderOf(restic.place().location);
    if (folder.empty())
        return initialize(restic, stop);
    if (isOccupied(folder))
        return {ResticTrouble::Occupied, false, folder + " is not empty."};
    std::error_code error;
    return fs::exists(fs::symlink_status(folder, error)) ? makeInside(restic.place(), folder, stop)
                                                         : makeBeside(restic.place(), folder, stop);
}

} // namespace kelvane
