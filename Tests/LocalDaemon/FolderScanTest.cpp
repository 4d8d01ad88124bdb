#include "LocalDaemon/FolderScan.h"

#include "Tests/Harness/TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/stat.h>

namespace kelvane {
namespace {

using namespace std::chrono_literals;
using tests::TemporaryFolder;

// A scan of a folder, and what it last said.
class WatchedScan {
public:
    explicit WatchedScan(const std::string& root, const FolderScan::Options& options = {})
        : scan_(
              root, [this](const ScanReport& report) { take(report); }, options) {
        scan_.start();
    }
    ~WatchedScan() {
        hold(false);
        scan_.stop();
    }

    // False when the scan does not come to rest with these totals within the time that a slow machine needs.
    [[nodiscard]] bool comesTo(const FileTotals& totals) {
        return awaits([&] { return last_ && !last_->isScanning && last_->totals == totals; });
    }
    template <class Condition>
    [[nodiscard]] bool awaits(Condition condition) {
        std::unique_lock guard(mutex_);
        return changed_.wait_for(guard, 20s, condition);
    }

    // Holds the scan's thread up at its next report.
    void hold(bool held) {
        const std::scoped_lock guard(mutex_);
        isHeld_ = held;
        changed_.notify_all();
    }

    // With `awaits` only.
    std::optional<ScanReport> last_;
    bool isWaiting_ = false;
    int fullScans_ = 0;
    std::vector<std::string> changedFolders_;

private:
    void take(const ScanReport& report) {
        std::unique_lock guard(mutex_);
        fullScans_ += report.isScanning && !(last_ && last_->isScanning) ? 1 : 0;
        last_ = report;
        changedFolders_.insert(changedFolders_.end(), report.changedFolders.begin(),
                               report.changedFolders.end());
        isWaiting_ = isHeld_;
        changed_.notify_all();
        changed_.wait(guard, [this] { return !isHeld_; });
        isWaiting_ = false;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool isHeld_ = false;
    FolderScan scan_;
};

// Counted anew, by other means.
FileTotals totalsOf(const std::filesystem::path& root) {
    FileTotals totals;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
        if (entry.symlink_status().type() == std::filesystem::file_type::regular)
            totals += {1, entry.file_size()};
    return totals;
}

TEST(FolderScan, CountsRegularFilesAndFollowsNoLinks) {
    const TemporaryFolder outside;
    outside.write("deep/file", "outside");
    const TemporaryFolder home;
    home.write("file", "12345");
    home.write("a/b/c/.hidden", "123");
    home.write("a/b/empty", "");
    std::filesystem::create_hard_link(home / "file", home / "a/second name");
    std::filesystem::create_symlink(home / "file", home / "a/link to a file");
    std::filesystem::create_directory_symlink(outside.path(), home / "a/link to a folder");
    std::filesystem::create_directory_symlink("..", home / "a/loop");
    ASSERT_EQ(::mkfifo((home / "a/pipe").c_str(), 0600), 0);
    WatchedScan scan(home.path());
    EXPECT_TRUE(scan.comesTo({4, 5 + 3 + 0 + 5}));
}

TEST(FolderScan, StaysInItsFileSystem) {
    const std::atomic<bool> stopping = false;
    const FolderListing listing = listFolder("/", stopping);
    EXPECT_EQ(std::count(listing.subfolders.begin(), listing.subfolders.end(), "proc"), 0);
    EXPECT_EQ(std::count(listing.subfolders.begin(), listing.subfolders.end(), "etc"), 1);
}

TEST(FolderScan, FollowsWhatChanges) {
    const TemporaryFolder home;
    home.write("file", "12345");
    home.write("a/b/file", "1234");
    WatchedScan scan(home.path());
    ASSERT_TRUE(scan.comesTo({2, 9}));
    const struct {
        const char* what;
        std::function<void()> act;
        FileTotals totals;
        const char* where; // the folder that panes are to look at
    } steps[] = {
        {"grow", [&] { std::ofstream(home / "file", std::ios::app) << "67"; }, {2, 11}, ""},
        {"shrink", [&] { std::filesystem::resize_file(home / "a/b/file", 1); }, {2, 8}, "/a/b"},
        {"new folders", [&] { home.write("x/y/z/file", "123"); }, {3, 11}, ""},
        {"deep in a new folder", [&] { home.write("x/y/z/another", "12"); }, {4, 13}, "/x/y/z"},
        {"rename a folder", [&] { std::filesystem::rename(home / "x", home / "a/b/x2"); }, {4, 13}, "/a/b"},
        {"in the renamed one", [&] { home.write("a/b/x2/y/new", "1"); }, {5, 14}, "/a/b/x2/y"},
        {"replace a file",
         [&] { std::filesystem::rename(home / "a/b/x2/y/new", home / "file"); },
         {4, 7},
         ""},
        {"delete a tree", [&] { std::filesystem::remove_all(home / "a"); }, {1, 1}, ""},
        {"make it again", [&] { home.write("a/b/file", "12"); }, {2, 3}, ""},
    };
    for (const auto& [what, act, totals, where] : steps) {
        act();
        ASSERT_TRUE(scan.comesTo(totals)) << what;
        ASSERT_TRUE(scan.awaits([&, path = home.path() + where] {
            return std::count(scan.changedFolders_.begin(), scan.changedFolders_.end(), path) > 0;
        })) << what;
        scan.changedFolders_.clear();
    }
}

TEST(FolderScan, TellsApartFoldersThatSwapTheirNames) {
    const TemporaryFolder home;
    home.write("one/in/file", "1");
    home.write("two/in/other/file", "22");
    WatchedScan scan(home.path());
    ASSERT_TRUE(scan.comesTo({2, 3}));
    std::filesystem::rename(home / "one", home / "three");
    std::filesystem::rename(home / "two", home / "one");
    std::filesystem::rename(home / "three", home / "two");
    home.write("one/in/other/file", "333");
    ASSERT_TRUE(scan.comesTo({2, 4}));
    std::filesystem::remove_all(home / "two");
    EXPECT_TRUE(scan.comesTo({1, 3}));
}

TEST(FolderScan, IsTrueAfterABurst) {
    const TemporaryFolder home;
    home.write("stays/file", "1");
    WatchedScan scan(home.path());
    ASSERT_TRUE(scan.comesTo({1, 1}));
    const auto write = [&](const std::string& top) {
        for (int number = 0; number < 400; ++number) {
            const std::string folder = top + '/' + std::to_string(number % 20);
            home.write(folder + "/deep/" + std::to_string(number),
                       std::string(static_cast<std::size_t>(number), 'x'));
            if (number % 50 == 49)
                std::filesystem::rename(home / folder, home / (folder + "-moved" + std::to_string(number)));
            if (number % 70 == 69)
                std::filesystem::remove_all(home / (top + "/3"));
        }
    };
    std::thread other([&] { write("other"); });
    write("one");
    other.join();
    EXPECT_TRUE(scan.comesTo(totalsOf(home.path())));
}

TEST(FolderScan, LooksAtEverythingAgainWhenTheSystemHasDroppedChanges) {
    std::size_t longestQueue = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> longestQueue;
    const TemporaryFolder home;
    home.write("a/b/file", "1");
    home.write("c/file", "1");
    WatchedScan scan(home.path());
    ASSERT_TRUE(scan.comesTo({2, 2}));
    scan.fullScans_ = 0;
    scan.hold(true);
    home.write("file", "1");
    ASSERT_TRUE(scan.awaits([&] { return scan.isWaiting_; }));
    for (std::size_t events = 0; events <= longestQueue; events += 2) {
        home.write("file2", "");
        std::filesystem::remove(home / "file2");
    }
    home.write("a/b/c/d/file", "22"); // of all this nothing is told
    std::filesystem::remove_all(home / "c");
    std::filesystem::create_directories(home / "c");
    home.write("c/file", "333");
    scan.hold(false);
    EXPECT_TRUE(scan.comesTo({4, 7}));
    home.write("c/file", "4444");
    EXPECT_TRUE(scan.comesTo({4, 8}));
    EXPECT_TRUE(scan.awaits([&] { return scan.fullScans_ > 0; }));
}

TEST(FolderScan, LooksFromTimeToTimeWhereItMayNotWatch) {
    const TemporaryFolder home;
    home.write("a/b/file", "1");
    FolderScan::Options options;
    options.mostWatches = 1;
    options.rescanInterval = 20ms;
    WatchedScan scan(home.path(), options);
    ASSERT_TRUE(scan.comesTo({1, 1}));
    EXPECT_TRUE(scan.awaits([&] { return scan.last_->isWatchIncomplete; }));
    home.write("a/b/file", "22");
    EXPECT_TRUE(scan.comesTo({1, 2}));
    home.write("a/b/c/file", "333");
    EXPECT_TRUE(scan.comesTo({2, 5}));
    std::filesystem::remove_all(home / "a/b");
    EXPECT_TRUE(scan.comesTo({0, 0}));
}

TEST(FolderScan, LeavesOutWhatItMayNotReadUntilItMay) {
    const TemporaryFolder home;
    std::filesystem::permissions(home.path(), std::filesystem::perms(0755));
    home.write("file", "1");
    home.write("closed/in/file", "22");
    std::filesystem::permissions(home / "closed", std::filesystem::perms(0));
    std::optional<WatchedScan> scan;
    // Root may read everything; the scan's thread takes over whose files the thread that makes it may read.
    std::thread maker([&] {
        if (::geteuid() == 0)
            ::setfsuid(65534);
        scan.emplace(home.path());
    });
    maker.join();
    EXPECT_TRUE(scan->comesTo({1, 1}));
    std::filesystem::permissions(home / "closed", std::filesystem::perms(0755));
    EXPECT_TRUE(scan->comesTo({2, 3}));
    home.write("closed/in/file", "333");
    EXPECT_TRUE(scan->comesTo({2, 4}));
    std::filesystem::permissions(home / "closed", std::filesystem::perms(0));
    EXPECT_TRUE(scan->comesTo({1, 1}));
    std::filesystem::permissions(home / "closed", std::filesystem::perms(0755));
    EXPECT_TRUE(scan->comesTo({2, 4}));
}

} // namespace
} // namespace kelvane
