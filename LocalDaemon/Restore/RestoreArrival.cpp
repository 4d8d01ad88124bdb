#include "LocalDaemon/Restore/RestoreArrival.h"

#include "Support/GuardedWork.h"

#include <array>
#include <charconv>
#include <filesystem>
#include <poll.h>
#include <sys/stat.h>

namespace kelvane {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds shortestPause(500);
constexpr std::chrono::seconds quietAfter(30);
constexpr int pausePerLook = 4; // a look at very many files takes a while, and must not be all there is done

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
        const std::size_t own = path.find('/', stagingFolder.size() + 1); // behind the snapshot's number
        if (own == std::string::npos)
            continue; // somebody else's
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

ArrivalWatch::ArrivalWatch(Options options) : options_(std::move(options)), thread_([this] { watch(); }) {}

ArrivalWatch::~ArrivalWatch() {
    ended_.set();
    thread_.join();
}

void ArrivalWatch::watch() {
    Arrival last;
    Clock::time_point lastArrival = Clock::now();
    milliseconds pause = shortestPause;
    bool isQuiet = false;
    for (;;) {
        std::array<pollfd, 2> waits{
            {{ended_.descriptor(), POLLIN, 0}, {options_.stop.descriptor(), POLLIN, 0}}};
        ::poll(waits.data(), callStop_.isSet() ? 1 : 2, static_cast<int>(pause.count()));
        if (ended_.isSet())
            return;
        if (options_.stop.isSet()) {
            callStop_.set();
            continue;
        }
        const Clock::time_point begin = Clock::now();
        Arrival arrival = last;
        runGuarded(
            "counting restored files", [](const std::string&) {},
            [&] { arrival = arrivalIn(options_.stagingFolder, options_.index); });
        if (!(arrival == last)) {
            options_.onArrival(arrival);
            lastArrival = begin;
            last = arrival;
        } else if (begin - lastArrival > options_.patience) {
            callStop_.set();
        }
        if (const bool wasQuiet = std::exchange(isQuiet, begin - lastArrival > quietAfter);
            wasQuiet != isQuiet)
            options_.onQuiet(isQuiet);
        pause = std::max(shortestPause,
                         pausePerLook * std::chrono::duration_cast<milliseconds>(Clock::now() - begin));
    }
}

} // namespace kelvane
