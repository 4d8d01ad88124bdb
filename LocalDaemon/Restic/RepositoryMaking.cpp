#include "LocalDaemon/Restic/RepositoryMaking.h"

#include "Foundation/CleanPath.h"
#include "Foundation/Format.h"
#include "LocalDaemon/Restic/Snapshots.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <random>
#include <span>
#include <sys/stat.h>
#include <system_error>
#include <vector>

namespace kelvane {
namespace {

namespace fs = std::filesystem;

constexpr const char* lostAndFound = "lost+found";
constexpr std::string_view unfinished = ".kelvane-new"; // Followed by a number.
constexpr const char* noteName = "/unfinished-repository";
constexpr std::size_t longestNote = 4096;
constexpr const char* config = "config"; // restic looks for this file to detect a repository.

ResticOutcome failed(const std::string& path, const std::error_code& error) {
    return {.trouble = ResticTrouble::Failed, .errors = path + ": " + error.message()};
}

ResticOutcome initialize(const Restic& restic, const StopSignal& stop) {
    Restic::Call call;
    call.arguments = {"init"};
    return restic.run(call, stop);
}

// A folder with a random name, which the destructor removes with its contents unless it was renamed. A
// note in the cache folder contains its path, so that the next constructor removes a folder that a killed
// daemon has left.
class UnfinishedFolder {
public:
    UnfinishedFolder(const RepositoryPlace& place, const std::string& beginning)
        : note_(place.cacheFolder + noteName) {
        const std::string start = beginning + std::string(unfinished) + '-';
        const FileReading note = readFile(note_, longestNote);
        const std::string left(note.bytes.begin(), note.bytes.end());
        std::error_code error;
        if (left.starts_with(start) && isHexadecimal(std::string_view(left).substr(start.size())))
            fs::remove_all(left, error);
        std::random_device random;
        path_ = formatText("%@%08x%08x", start, random(), random());
        if (const FileOutcome noted = replacePrivateFile(note_, path_); !noted.succeeded())
            logWarning("Cannot record the unfinished repository %@: %@; if the daemon is killed now, remove "
                       "it by hand",
                       path_, noted.reason);
        if (::mkdir(path_.c_str(), S_IRWXU) != 0)
            failure_ = std::error_code(errno, std::generic_category());
    }
    ~UnfinishedFolder() {
        std::error_code error;
        if (!failure_)
            fs::remove_all(path_, error);
        fs::remove(note_, error);
    }
    UnfinishedFolder(const UnfinishedFolder&) = delete;
    UnfinishedFolder& operator=(const UnfinishedFolder&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] const std::error_code& failure() const { return failure_; }

private:
    const std::string note_;
    std::string path_;
    std::error_code failure_;
};

// Creates the repository in a new folder beside `folder`, which does not exist yet, and renames that.
ResticOutcome makeBeside(RepositoryPlace place, const std::string& folder, const StopSignal& stop) {
    std::error_code error;
    if (const std::string around(folderOf(folder)); !ensureFolder(around))
        return {.trouble = ResticTrouble::Failed,
                .errors = "Cannot create the folder " + around + ": " + errorText()};
    const UnfinishedFolder made(place, folder);
    if (made.failure())
        return failed(made.path(), made.failure());
    place.location = made.path();
    ResticOutcome outcome = initialize(Restic(place), stop);
    if (outcome.succeeded())
        fs::rename(made.path(), folder, error);
    return error ? failed(made.path(), error) : outcome;
}

// Creates the repository inside an existing folder, since that may be a mount point or have a parent that
// is not writable, and then moves the files up, the one that restic looks for last.
ResticOutcome makeInside(RepositoryPlace place, const std::string& folder, const StopSignal& stop) {
    const UnfinishedFolder made(place, folder + '/');
    if (made.failure())
        return failed(made.path(), made.failure());
    place.location = made.path();
    ResticOutcome outcome = initialize(Restic(place), stop);
    if (!outcome.succeeded())
        return outcome;
    std::error_code error;
    std::vector<std::string> names;
    for (fs::directory_iterator at(made.path(), error); !error && at != fs::directory_iterator();
         at.increment(error))
        names.push_back(at->path().filename().string());
    std::partition(names.begin(), names.end(), [](const std::string& name) { return name != config; });
    for (const std::string& name : names)
        if (!error)
            fs::rename(made.path() + '/' + name, folder + '/' + name, error);
    return error ? failed(made.path(), error) : outcome;
}

} // namespace

bool isOccupied(const std::string& folder) {
    std::error_code error;
    if (fs::status(folder, error).type() == fs::file_type::not_found)
        return false;
    for (fs::directory_iterator at(folder, error); !error && at != fs::directory_iterator();
         at.increment(error))
        if (const std::string name = at->path().filename();
            name != lostAndFound && !name.starts_with(unfinished))
            return true;
    return static_cast<bool>(error);
}

ResticOutcome makeRepository(const Restic& restic, const StopSignal& stop) {
    const std::string folder = localFolderOf(restic.place().location);
    if (folder.empty())
        return initialize(restic, stop);
    if (isOccupied(folder))
        return {.trouble = ResticTrouble::Occupied, .errors = folder + " is not empty."};
    std::error_code error;
    return fs::exists(fs::symlink_status(folder, error)) ? makeInside(restic.place(), folder, stop)
                                                         : makeBeside(restic.place(), folder, stop);
}

} // namespace kelvane
