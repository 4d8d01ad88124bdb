#include "LocalDaemon/Restore/RestoreArrival.h"

#include "Support/GuardedWork.h"

#include <algorithm>
#include <filesystem>
#include <sys/stat.h>
#include <utility>

namespace kelvane {
namespace {

constexpr std::chrono::seconds quietAfter(30);
// The pause after a poll, in durations of that poll: with very many files, polling must not take all the
// time.
constexpr int pausePerPoll = 4;

} // namespace

Arrival arrivalIn(const std::string& stagingFolder, const BackupIndex& index) {
    Arrival arrival;
    FileTime newest;
    std::error_code error;
    using Options = std::filesystem::directory_options;
    std::filesystem::recursive_directory_iterator entry(stagingFolder, Options::skip_permission_denied,
                                                        error);
    for (; !error && entry != std::filesystem::recursive_directory_iterator(); entry.increment(error)) {
        const std::string& path = entry->path().native();
        struct stat status {};
        if (::lstat(path.c_str(), &status) != 0 || S_ISDIR(status.st_mode))
            continue;
        arrival.bytes += static_cast<std::uint64_t>(status.st_size);
        const FileTime changed(status.st_ctim);
        arrival.lastChange = std::max(arrival.lastChange, changed);
        // The path in the backup begins after the number of the snapshot.
        const std::size_t own = path.find('/', stagingFolder.size() + 1);
        if (own == std::string::npos)
            continue; // Not in the folder of a snapshot, so restic has not restored it.
        const BackupIndex::Item* const item = index.find(std::string_view(path).substr(own));
        if (!item ||
            (item->kind == ItemKind::File && static_cast<std::uint64_t>(status.st_size) < item->size))
            continue;
        ++arrival.files;
        if (changed > newest) {
            newest = changed;
            arrival.newestFile = index.nameOf(*item);
            arrival.newestSize = item->size;
        }
    }
    return arrival;
}

ArrivalWatch::ArrivalWatch(Options options) : options_(std::move(options)) {}

bool ArrivalWatch::poll() {
    const Clock::time_point begin = Clock::now();
    if (begin < nextPoll_)
        return true;
    Arrival arrival = last_;
    runGuarded(
        "counting restored files", [](const std::string&) {},
        [&] { arrival = arrivalIn(options_.stagingFolder, options_.index); });
    const bool hasMore = !(arrival == last_);
    if (hasMore) {
        options_.onArrival(arrival);
        lastArrival_ = begin;
        last_ = arrival;
    }
    if (const bool wasQuiet = std::exchange(isQuiet_, begin - lastArrival_ > quietAfter);
        wasQuiet != isQuiet_)
        options_.onQuiet(isQuiet_);
    const Clock::time_point end = Clock::now();
    nextPoll_ = end + pausePerPoll * (end - begin);
    return hasMore || begin - lastArrival_ <= options_.stallTimeout;
}

} // namespace kelvane
