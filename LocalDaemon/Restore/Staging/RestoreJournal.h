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

// Of what stat tells of a file: what chmod can set.
inline constexpr mode_t modeBits = 07777;

// The restore jobs as a file, so that the death of the daemon loses none: a line for everything that happens,
// written before it counts, a new job also flushed to the disk. Opening it tidies it up, and so does its
// growing to more than twice of what was needed. Any thread; the calls block on the disk.
//
// A line that cannot be written is logged. A job whose end is not written down is done again after the next
// start, which does no harm.
class RestoreJournal {
public:
    struct Ended {
        std::uint32_t status = 0;
        std::vector<std::string> failures; // a line for each file, without control characters

        // Of very many failures it says how many more there are.
        [[nodiscard]] static Ended with(const std::vector<RestoreFailure>& failures);
        [[nodiscard]] std::size_t bytes() const; // that the failures take
    };
    struct Contents {
        std::vector<RestoreJob> waiting;           // in the order in which they came
        std::map<std::uint32_t, Ended> ended;      // by number, the last thousand
        std::set<std::string> stagingFolders;      // that were left standing
        std::map<std::string, mode_t> accessGiven; // the modes that folders had before
        std::uint32_t nextId = 1;
        std::string damage; // why jobs may be missing; empty: all could be read
    };

    explicit RestoreJournal(std::string path) : path_(std::move(path)) {}

    // Once, before anything else. None when there is no file. Each line has a checksum; a damaged one, or one
    // with a path that is not absolute and clean, is left out. A file that has such lines, or that cannot be
    // read, is set aside as "<path>.damaged"; where that fails too, nothing is written.
    [[nodiscard]] Contents open();

    // Empty, or why it is not written down.
    [[nodiscard]] std::string add(const RestoreJob& job);
    void end(std::uint32_t id, const Ended& ended);
    void stagingMade(const std::string& folder);
    void stagingGone(const std::string& folder);
    // A folder's owner gets access to it that its mode, `before`, does not give.
    void accessGiven(const std::string& folder, mode_t before);
    void accessEnded(const std::string& folder);

private:
    using Fields = std::vector<std::string>;

    enum class Flush { No, Yes };
    static constexpr off_t spareSize = off_t{1} << 20U; // bytes that it may grow by at least

    [[nodiscard]] bool append(const Fields& fields, Flush flush = Flush::No);
    // With the mutex held.
    [[nodiscard]] bool isOpen();
    [[nodiscard]] bool appendText(const std::string& text, Flush flush);
    void tidyUp();
    void rewrite(const Contents& contents);

    const std::string path_;
    std::mutex mutex_; // guards what follows
    FileDescriptor file_;
    int unusable_ = 0;         // not 0, the number of an error: the file is the only copy of damaged jobs
    off_t tidyAt_ = spareSize; // bytes
};

} // namespace kelvane
