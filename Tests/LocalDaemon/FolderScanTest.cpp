#include "LocalDaemon/Scan/FolderScan.h"

#include "Platform/FileDescriptor.h"
#include "Tests/LocalDaemon/BackedUpFolder.h"

#include <algorithm>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/fsuid.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/xattr.h>

namespace kelvane {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Mark = PathRules::Mark;
using tests::TemporaryFolder;

std::shared_ptr<BackupRules> rulesFor(const TemporaryFolder& home) {
    return std::make_shared<BackupRules>(
        BackupRules{.home = home.path(), .policy = {home / "cache/"}, .paths = {}});
}

// A scan of a folder, and its last reported totals.
class WatchedScan {
public:
    // `atRest` runs on the scan's thread when the scan is complete for the first time.
    explicit WatchedScan(
        const TemporaryFolder& home, const FolderScan::Options& options = {},
        std::function<void()> atRest = [] {})
        : scan(
              rulesFor(home), std::make_shared<BackupIndex>(), std::make_shared<FolderTree>(),
              [this](const ScanReport& report) { take(report); }, options),
          atRest_(std::move(atRest)) {
        scan.start();
    }
    ~WatchedScan() { scan.stop(); }

    // Returns false when the scan is not complete with these totals within a time that suffices on a slow
    // machine.
    [[nodiscard]] bool comesTo(const FileTotals& totals) {
        return awaits([&] { return !last.isScanning && last.totals == totals; });
    }
    template <class Condition>
    [[nodiscard]] bool awaits(Condition condition) {
        std::unique_lock guard(mutex_);
        return changed_.wait_for(guard, 20s, condition);
    }

    // Only with `awaits`.
    ScanReport last{.totals = {}, .isScanning = true, .changedFolders = {}, .pending = {}, .index = {}};
    std::vector<std::string> changedFolders;
    FolderScan scan;

private:
    void take(const ScanReport& report) {
        if (!report.isScanning)
            std::exchange(atRest_, [] {})();
        const std::scoped_lock guard(mutex_);
        last = report;
        changedFolders.insert(changedFolders.end(), report.changedFolders.begin(),
                              report.changedFolders.end());
        changed_.notify_all();
    }

    std::function<void()> atRest_;
    std::mutex mutex_;
    std::condition_variable changed_;
};

// Counts the files in a different way.
FileTotals totalsOf(const std::string& root, const BackupRules& rules) {
    FileTotals totals;
    for (const auto& entry : fs::recursive_directory_iterator(root))
        if (entry.symlink_status().type() == fs::file_type::regular &&
            verdictFor(rules, entry.path().string()).isIn())
            totals += {1, entry.file_size()};
    return totals;
}

TEST(FolderScan, StaysInItsFileSystemUnlessAnotherIsAdded) {
    const std::atomic<bool> stopping = false;
    for (const MountPolicy mountPolicy : {MountPolicy::WithinFileSystem, MountPolicy::AnyFileSystem}) {
        const auto folders = contentsOfFolder(
                                 "/", stopping, [&](auto) { return mountPolicy; }, [](auto&) { return true; })
                                 .subfolders;
        EXPECT_EQ(std::ranges::count(folders, "proc"), mountPolicy == MountPolicy::AnyFileSystem ? 1 : 0);
        EXPECT_EQ(std::ranges::count(folders, "etc"), 1);
    }
}

TEST(FolderScan, GoesOnAfterItsWorkHasThrown) {
    const TemporaryFolder home;
    home.write("file", "12345");
    std::atomic<int> failures = 0;
    FolderScan::Options options;
    options.failed = [&](const std::string& reason) { failures += reason == "no memory" ? 1 : 100; };
    WatchedScan scan(home, options, [] { throw std::runtime_error("no memory"); });
    ASSERT_TRUE(scan.comesTo({1, 5}));
    home.write("more", "1");
    EXPECT_TRUE(scan.comesTo({2, 6}));
    EXPECT_EQ(failures, 1);
}

TEST(FolderScan, FollowsWhatChanges) {
    const TemporaryFolder home;
    home.write("file", "12345");
    home.write("a/b/file", "1234");
    WatchedScan scan(home);
    ASSERT_TRUE(scan.comesTo({2, 9}));
    const auto move = [&](const char* from, const char* to) { fs::rename(home / from, home / to); };
    // With the totals afterwards and the folder that panes should reload.
    const std::tuple<std::function<void()>, FileTotals, const char*> steps[] = {
        {[&] { std::ofstream(home / "file", std::ios::app) << "67"; }, {2, 11}, ""},
        {[&] { fs::resize_file(home / "a/b/file", 1); }, {2, 8}, "/a/b"},
        {[&] { home.write("x/y/z/file", "123"); }, {3, 11}, ""},
        {[&] { home.write("x/y/z/another", "12"); }, {4, 13}, "/x/y/z"},
        {[&] { move("x", "a/b/x2"); }, {4, 13}, "/a/b"},
        {[&] { move("a/b/x2", "x3"), move("a", "c"), move("x3", "a"); }, {4, 13}, ""},
        {[&] { move("a/y/z/another", "file"); }, {3, 6}, "/a/y/z"},
        {[&] { fs::remove_all(home / "a"); }, {2, 3}, ""},
        {[&] { home.write("a/y/z/file", "12"); }, {3, 5}, ""}};
    for (const auto& [act, totals, where] : steps) {
        act();
        ASSERT_TRUE(scan.comesTo(totals)) << totals.count << where;
        const std::string path = home.path() + where;
        ASSERT_TRUE(scan.awaits([&] { return std::ranges::count(scan.changedFolders, path) > 0; })) << path;
        scan.changedFolders.clear();
    }
    // A comparison with another index does not count as a change of the folders.
    const auto index = std::make_shared<const BackupIndex>();
    scan.scan.setIndex(index);
    EXPECT_TRUE(scan.awaits([&] { return scan.last.index == index && scan.changedFolders.empty(); }));
}

// Returns the index as after a backup of the folder's current state.
std::shared_ptr<const BackupIndex> indexOf(const TemporaryFolder& home, std::uint32_t number) {
    return std::make_shared<const BackupIndex>(
        indexWith({}, "repository", {std::to_string(number)}, tests::itemsOf(home.path())));
}

TEST(FolderScan, ADeletionAndNewAttributesOfAFolderCallForABackup) {
    const TemporaryFolder home;
    home.write("a/file", "1");
    home.write("a/b/file", "2");
    fs::create_directory(home / "empty");
    fs::create_symlink("x", home / "link");
    WatchedScan scan(home);
    ASSERT_TRUE(scan.comesTo({2, 2}));
    const auto replace = [&] {
        fs::remove(home / "empty");
        fs::create_symlink("x", home / "empty");
    };
    const std::pair<const char*, std::function<void()>> steps[] = {
        {"a file deleted", [&] { fs::remove(home / "a/file"); }},
        {"a folder deleted", [&] { fs::remove_all(home / "a/b"); }},
        {"a link deleted", [&] { fs::remove(home / "link"); }},
        {"another mode, and what came and went since",
         [&] {
             fs::permissions(home / "a", fs::perms::owner_all);
             home.write("a/temporary", "");
             fs::remove(home / "a/temporary");
         }},
        {"an attribute", [&] { EXPECT_EQ(::setxattr((home / "a").c_str(), "user.x", "1", 1, 0), 0); }},
        {"a folder that became a link", replace},
    };
    std::uint32_t number = 0;
    for (const auto& [what, act] : steps) {
        const auto before = indexOf(home, ++number);
        scan.scan.setIndex(before);
        ASSERT_TRUE(scan.awaits([&] { return scan.last.index == before && scan.last.otherPending == 0; }))
            << what;
        act();
        EXPECT_TRUE(scan.awaits([&] { return scan.last.otherPending == 1 && !scan.last.isScanning; }))
            << what;
    }
}

// Like after a backup without "a", because of a rule or a mount.
TEST(FolderScan, WhatTheNewestSnapshotIsWithoutWaitsThoughAnOlderOneHasIt) {
    const TemporaryFolder home;
    home.write("a/b/file", "1");
    home.write("kept", "2");
    fs::create_directory(home / "a/empty");
    WatchedScan scan(home);
    const auto before = indexOf(home, 1);
    scan.scan.setIndex(before);
    ASSERT_TRUE(scan.awaits([&] { return scan.last.index == before && scan.last.pending.count == 0; }));
    std::vector<SnapshotItem> held;
    for (const std::string& path : {home.path(), home / "kept"})
        held.push_back(before->copyOf(*before->find(path)).item);
    scan.scan.setIndex(
        std::make_shared<BackupIndex>(indexWith(*before, "repository", {"second"}, std::move(held))));
    EXPECT_TRUE(scan.awaits([&] {
        return !scan.last.isScanning && scan.last.pending == FileTotals{1, 1} && scan.last.otherPending == 3;
    })) << "the file, and three folders";
}

// Also counts only regular files, and none through a link.
TEST(FolderScan, FollowsTheRules) {
    const TemporaryFolder home;
    std::mt19937 random(7);
    std::vector<std::string> paths{home.path()};
    const auto anyPath = [&] { return paths[random() % paths.size()]; };
    for (const char* folder :
         {"a", "a/b", "a/b/c", "a/b/c/d", "a/z", "cache", "cache/e", "e", "e/f", "e/f/g"})
        for (const char* name : {"", "/.file", "/other"}) {
            if (*name != 0)
                home.write(folder + std::string(name), std::string(random() % 100'000, 'x'));
            paths.push_back(home / (folder + std::string(name)));
        }
    fs::create_hard_link(home / "a/other", home / "a/second name");
    fs::create_symlink(home / "a/other", home / "a/link to a file");
    fs::create_directory_symlink("/etc", home / "a/link to a folder");
    fs::create_directory_symlink("..", home / "a/loop");
    ASSERT_EQ(::mkfifo((home / "a/pipe").c_str(), 0600), 0);

    FolderScan::Options options;
    options.quiet = 1ms;
    WatchedScan scan(home, options);
    BackupRules rules = *rulesFor(home);
    ASSERT_TRUE(scan.comesTo(totalsOf(home.path(), rules)));
    for (int step = 0; step < 200; ++step) {
        const std::string path = anyPath();
        switch (random() % 8) {
        case 0: rules.automaticMode = !rules.automaticMode; break;
        case 1: rules.paths.exclusions.insert(path); break;
        case 2: rules.paths.exclusions.clear(); break;
        case 3: rules.paths.mark(fs::path(path).parent_path(), Mark::Removed); [[fallthrough]];
        default: rules.paths.mark(path, random() % 3 == 0 ? Mark::Removed : Mark::Added);
        }
        scan.scan.setRules(std::make_shared<BackupRules>(rules));
        ASSERT_TRUE(scan.comesTo(totalsOf(home.path(), rules))) << "in step " << step;
        std::ofstream(path, std::ios::app) << "longer"; // unless it is a folder
        ASSERT_TRUE(scan.comesTo(totalsOf(home.path(), rules))) << "in step " << step;
    }
}

TEST(FolderScan, FollowsWhatIsMountedInTheMiddle) {
    const TemporaryFolder home;
    home.write("file", "1");
    home.write("disk/photos/sub/file", "12");
    home.write("disk/other", "1234");
    std::mutex mutex;
    auto points = std::make_shared<const MountPoints>();
    FolderScan::Options options;
    options.mounts = [&] {
        const std::scoped_lock guard(mutex);
        return points;
    };
    WatchedScan scan(home, options);
    auto rules = *rulesFor(home);
    ASSERT_TRUE(scan.comesTo({3, 7}));
    const auto mount = [&](const MountPoints& now) {
        const std::scoped_lock guard(mutex);
        points = std::make_shared<const MountPoints>(now);
        scan.scan.recheckEverything();
    };
    const MountPoints disk{{home / "disk", "ext4"}};
    const auto setRules = [&] { scan.scan.setRules(std::make_shared<BackupRules>(rules)); };
    const std::pair<std::function<void()>, FileTotals> steps[] = {
        {[&] { mount(disk); }, {1, 1}},
        {[&] { rules.volumes = {home / "disk/photos"}, setRules(); }, {2, 3}},
        {[&] { home.write("disk/photos/sub/file", "123"); }, {2, 4}},
        {[&] { mount({}); }, {3, 8}},
        {[&] { home.write("disk/photos/sub/file", "12"); }, {3, 7}},
        {[&] { mount(disk); }, {2, 3}},
        {[&] { home.write("disk/photos/sub/file", "1"); }, {2, 2}}};
    for (const auto& [act, totals] : steps)
        EXPECT_TRUE((act(), scan.comesTo(totals))) << totals.count << ' ' << totals.bytes;
    rules.automaticMode = false;
    rules.paths.marks = {{home.path(), Mark::Added}, {home / "disk/photos/sub", Mark::Added}};
    setRules();
    home.write("disk/photos/new", "1");
    home.write("new", "1");
    EXPECT_TRUE(scan.comesTo({3, 3}));
}

TEST(FolderScan, IsTrueAlsoWhenTheSystemHasDroppedChanges) {
    std::size_t longestQueue = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> longestQueue;
    const TemporaryFolder home;
    home.write("old/in/file", "1");
    WatchedScan scan(home, {}, [&] {
        for (std::size_t events = 0; events <= longestQueue; events += 2) {
            home.write("file", "");
            fs::remove(home / "file");
        }
        fs::remove(home / "old/in/file"); // this change and the next raise no event
        home.write("old/in/deep/one", "22");
        home.write("new/another", "333");
    });
    EXPECT_TRUE(scan.comesTo({2, 5}));
}

TEST(FolderScan, LooksFromTimeToTimeWhereItMayNotWatch) {
    const TemporaryFolder home;
    home.write("a/b/file", "1");
    FolderScan::Options options;
    options.mostWatches = 1;
    options.rescanInterval = 20ms;
    WatchedScan scan(home, options);
    EXPECT_TRUE(scan.awaits([&] { return scan.last.isWatchIncomplete; }));
    home.write("a/b/file", "22");
    home.write("a/b/c/file", "333");
    EXPECT_TRUE(scan.comesTo({2, 5}));
    fs::remove_all(home / "a/b");
    EXPECT_TRUE(scan.comesTo({0, 0}));
}

// The kernel raises no event for this.
TEST(FolderScan, FindsInTimeWhatIsWrittenThroughAMapping) {
    constexpr std::size_t size = 4096;
    const TemporaryFolder home;
    home.write("file", std::string(size, '1'));
    const FileDescriptor file(::open((home / "file").c_str(), O_RDWR));
    auto* const pages = static_cast<char*>(::mmap(nullptr, size, PROT_WRITE, MAP_SHARED, file.get(), 0));
    FolderScan::Options options;
    options.longestUnseen = 300ms;
    WatchedScan scan(home, options);
    const auto before = indexOf(home, 1);
    scan.scan.setIndex(before);
    ASSERT_TRUE(scan.awaits([&] { return scan.last.index == before && scan.last.pending.count == 0; }));
    *pages = '2';
    ::msync(pages, size, MS_SYNC);
    EXPECT_TRUE(scan.awaits([&] { return scan.last.pending.count == 1; }));
    ::munmap(pages, size);
}

TEST(FolderScan, LeavesOutWhatItMayNotReadUntilItMay) {
    const TemporaryFolder home;
    fs::permissions(home.path(), fs::perms(0755));
    home.write("file", "1");
    home.write("closed/in/file", "22");
    fs::permissions(home / "closed", fs::perms(0));
    std::optional<WatchedScan> scan;
    // Root may read everything; the scan's thread inherits the rights of the thread that creates it.
    std::thread maker([&] {
        if (::geteuid() == 0)
            ::setfsuid(65534);
        scan.emplace(home);
    });
    maker.join();
    EXPECT_TRUE(scan->comesTo({1, 1}));
    for (const int mode : {0755, 0, 0755}) {
        fs::permissions(home / "closed", fs::perms(mode));
        EXPECT_TRUE(scan->comesTo(mode == 0 ? FileTotals{1, 1} : FileTotals{2, 3}));
    }
    home.write("closed/in/file", "333");
    EXPECT_TRUE(scan->comesTo({2, 4}));
}

} // namespace
} // namespace kelvane
