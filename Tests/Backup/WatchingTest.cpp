#include "PreferencePane/Backup/FolderWatcher.h"
#include "PreferencePane/Backup/ReloadThrottle.h"
#include "Tests/Harness/ManualLoop.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace kelvane::tests {
namespace {

using namespace std::chrono_literals;
using Paths = std::vector<std::string>;

class FolderWatcherTest : public testing::Test {
protected:
    void watch(const std::string& path) { watcher->watchAllOfPath(path, volumes); }

    const TemporaryFolder folder;
    const std::string file = folder.write("disk/in/file", "");
    const Volumes volumes{"System", {{"USB", folder / "disk"}}};
    const std::shared_ptr<ManualLoop> loop = std::make_shared<ManualLoop>();
    std::unique_ptr<FolderWatcher> watcher = FolderWatcher::create(loop, [](const std::string&) {});
};

TEST_F(FolderWatcherTest, WatchesEachFolderUpToTheRootOnce) {
    const Paths onUSB{"/Volumes/USB/in", "/Volumes/USB", "/"};
    watch("/Volumes/USB/in");
    EXPECT_EQ(watcher->watchedPaths(), onUSB);
    watch("/Volumes/USB"); // already watched
    EXPECT_EQ(watcher->watchedPaths(), onUSB);
    std::filesystem::create_directory(folder / "disk/in 2");
    watch("/Volumes/USB/in 2");
    watch("/Volumes/USB/in"); // a prefix of the name is another folder
    EXPECT_EQ(watcher->watchedPaths(), onUSB);
    watch("/Volumes/System");
    EXPECT_EQ(watcher->watchedPaths(), Paths{"/Volumes/System"}); // which is the root
    watch("/Volumes/USB/missing");
    EXPECT_EQ(watcher->watchedPaths(), (Paths{"/Volumes/USB", "/"}));

    watcher->stopWatching();
    watch("/Volumes/USB");
    EXPECT_EQ(watcher->watchedPaths(), Paths()); // deliberately: see stopWatching
    watch("/Volumes/USB/in");
    EXPECT_EQ(watcher->watchedPaths(), onUSB);
}

TEST_F(FolderWatcherTest, IsNotMadeWhereNothingCanBeWatched) {
    watcher.reset(); // its thread could not poll under the limit
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(FolderWatcher::create(loop, [](const std::string&) {}), nullptr);
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
}

using Seconds = ReloadThrottle::Seconds;

class ReloadThrottleTest : public testing::Test {
protected:
    void change(int column, Seconds later) {
        now += later;
        throttle.columnChanged(column);
    }
    // Returns what was reloaded since the last call and, after a bar, what the loop's next turn reloads.
    std::string reloads() {
        const std::string atOnce = std::exchange(reloaded, {});
        loop->advance(0ms);
        const std::string next = std::exchange(reloaded, {});
        return next.empty() ? atOnce : atOnce + '|' + next;
    }

    const std::shared_ptr<ManualLoop> loop = std::make_shared<ManualLoop>();
    Seconds now{1000};
    Seconds cost{1}; // The cost of a reload.
    std::string reloaded;
    ReloadThrottle throttle{loop,
                            [this](int column) {
                                reloaded += std::to_string(column);
                                now += cost;
                            },
                            [this] { return now; }};
};

TEST_F(ReloadThrottleTest, HoldsAReloadBackWhileTwiceTheLastOnesTimeLasts) {
    change(2, 0s);
    EXPECT_EQ(reloads(), "3");
    change(2, 2s); // not longer than twice the cost
    EXPECT_EQ(reloads(), "|3");
    // A delayed reload does not count: the next change is not delayed.
    change(2, 1ms);
    EXPECT_EQ(reloads(), "3");
    cost = 5s;
    change(2, 2001ms);
    EXPECT_EQ(reloads(), "3");
    change(2, 9s);
    EXPECT_EQ(reloads(), "|3");
}

TEST_F(ReloadThrottleTest, ReloadsOnceForAllThatIsHeldBackOfAColumn) {
    change(0, 0s);
    for (int times = 0; times < 5; ++times)
        change(0, 100ms);
    EXPECT_EQ(reloads(), "1|1");
    change(0, 0s);
    change(0, 100ms);
    change(0, 2s); // late enough to reload at once, instead of the delayed one
    EXPECT_EQ(reloads(), "11");
    change(0, 100ms);
    change(3, 0s); // releases the delayed one, which adds no delay
    EXPECT_EQ(reloads(), "14");
    change(3, 100ms);
    change(-1, 0s); // in no visible column
    EXPECT_EQ(reloads(), "4");
    EXPECT_EQ(loop->runningTimers(), 0);
}

} // namespace
} // namespace kelvane::tests
