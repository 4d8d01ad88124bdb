#pragma once

#include "LocalDaemon/Restore/Staging/RestoreJob.h"
#include "Platform/FileDescriptor.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kelvane {

// The bits of st_mode that chmod can set.
inline constexpr mode_t modeBits = 07777;

// The restore jobs as a file, so that no job is lost when the daemon dies: every event is written as a
// line before it takes effect, and a new job is also flushed to the disk. The file is rewritten when it
// is opened, and when it grows to more than twice the size it needs. Any thread; the calls block on the
// disk.
//
// A line that cannot be written is logged. A job whose end was not recorded runs again after the next
// start, which does no harm.
class RestoreJournal {
public:
    struct Ended {
        std::uint32_t status = 0;
        std::vector<std::string> failures; // One line per file, without control characters.

        // Limits the number of lines; then the last one gives the number of the other failures.
        [[nodiscard]] static Ended with(const std::vector<RestoreFailure>& failures);
        [[nodiscard]] std::size_t bytes() const; // The size of the failures.
    };
    struct Contents {
        std::vector<RestoreJob> waiting;           // In the order of their arrival.
        std::map<std::uint32_t, Ended> ended;      // The last thousand, by number.
        std::set<std::string> stagingFolders;      // Staging folders that were not removed.
        std::map<std::string, mode_t> accessGiven; // The previous modes of folders, by path.
        std::uint32_t nextId = 1;
        std::string damage; // Why jobs may be missing; empty when all lines could be read.
    };

    explicit RestoreJournal(std::string path) : path_(std::move(path)) {}

    // Must be called once, before anything else. Returns no contents when there is no file. A line with
    // a wrong checksum, or with a path that is not absolute and clean, is skipped. A file with such
    // lines, or an unreadable one, is renamed to "<path>.damaged"; if that fails as well, nothing is
    // written.
    [[nodiscard]] Contents open();

    // Returns why the job is not saved, empty on success.
    [[nodiscard]] std::string add(const RestoreJob& job);
    void end(std::uint32_t id, const Ended& ended);
    void stagingMade(const std::string& folder);
    void stagingGone(const std::string& folder);
    // Records that a folder's owner was given access that its mode, `before`, does not grant.
    void accessGiven(const std::string& folder, mode_t before);
    void accessEnded(const std::string& folder);

private:
    using Fields = std::vector<std::string>;

    enum class Flush { No, Yes };
    // In bytes: the file grows at least by this size before it is rewritten.
    static constexpr off_t spareSize = off_t{1} << 20U;

    [[nodiscard]] bool append(const Fields& fields, Flush flush = Flush::No);
    // The mutex must be held.
    [[nodiscard]] bool isOpen();
    [[nodiscard]] bool appendText(const std::string& text, Flush flush);
    void tidyUp();
    void rewrite(const Contents& contents);

    const std::string path_;
    std::mutex mutex_; // Guards the members below.
    FileDescriptor file_;
    // An error number when nothing may be written, because a damaged file could not be renamed and is the
    // only copy of its jobs; otherwise 0.
    int unusable_ = 0;
    off_t tidyAt_ = spareSize; // The size in bytes above which the file is rewritten.
};

} // namespace kelvane
