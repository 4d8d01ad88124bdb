#include "PreferencePane/Backup/FolderWatcher.h"

#include "Tests/Harness/ManualLoop.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sys/resource.h>

namespace kelvane::tests {
namespace {

using namespace std::chrono_literals;
using Paths = std::vector<std::string>;

class FolderWatcherTest : public testing::Test {
protected:
    void watch(const std::string& path) { watcher->watchAllOfPath(path, volumes); }
    [[nodiscard]] bool isTold(const std::string& path) {
        return loop->runUntil([&] { return std::ranges::find(told, path) != told.end(); });
    }

    const TemporaryFolder folder;
    const std::string boot = folder.write("home/docs/file", "");
    const std::string disk = folder.write("disk/in/file", "");
    const Volumes volumes{"System", {{"USB", folder / "disk"}}};
    const std::shared_ptr<ManualLoop> loop = std::make_shared<ManualLoop>();
    Paths told;
    std::unique_ptr<FolderWatcher> watcher =
        FolderWatcher::create(loop, [this](const std::string& path) { told.push_back(path); });
};

TEST_F(FolderWatcherTest, WatchesEachFolderUpToTheRootOnce) {
    const Paths onUSB{"/Volumes/USB/in", "/Volumes/USB", "/"};
    watch("/Volumes/USB/in");
    EXPECT_EQ(watcher->watchedPaths(), onUSB);
    watch("/Volumes/USB"); // it is watched already
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

TEST_F(FolderWatcherTest, TellsWhatIsMadeRenamedAndDeletedUnderTheVolumesName) {
    watch("/Volumes/USB/in");
    const std::function<void()> changes[] = {
        [&] { folder.write("disk/in/new", ""); },
        [&] { std::filesystem::rename(folder / "disk/in/new", folder / "disk/in/other"); },
        [&] { std::filesystem::remove(folder / "disk/in/other"); },
    };
    for (const auto& change : changes) {
        change();
        EXPECT_TRUE(isTold("/Volumes/USB/in"));
        told.clear();
    }
    folder.write("disk/beside", "");
    EXPECT_TRUE(isTold("/Volumes/USB"));
    watcher->stopWatching();
    folder.write("disk/in/unwatched", "");
    watch("/Volumes/System" + folder / "home/docs");
    told.clear();
    folder.write("home/docs/new", "");
    EXPECT_TRUE(isTold("/Volumes/System" + folder / "home/docs"));
    EXPECT_EQ(std::ranges::count(told, "/Volumes/USB/in"), 0);
}

TEST_F(FolderWatcherTest, TellsABurstAFewTimesOnly) {
    watch("/Volumes/USB/in");
    const auto end = std::chrono::steady_clock::now() + 500ms;
    int made = 0;
    for (; std::chrono::steady_clock::now() < end; loop->runPosted())
        folder.write("disk/in/" + std::to_string(made++), "");
    told.clear();
    EXPECT_TRUE(isTold("/Volumes/USB/in")); // the last change, too
    EXPECT_LE(told.size(), 4);
    EXPECT_GT(made, 100);
}

TEST_F(FolderWatcherTest, EndsWhileItWaitsForTheMainThread) {
    watch("/Volumes/USB/in");
    folder.write("disk/in/new", "");
    EXPECT_TRUE(loop->runUntil([&] { return !told.empty(); }));
    folder.write("disk/in/newer", "");
    const std::weak_ptr<ManualLoop> used = loop;
    watcher.reset();
    told.clear();
    loop->runPosted();
    EXPECT_TRUE(told.empty());
}

TEST_F(FolderWatcherTest, IsNotMadeWhereNothingCanBeWatched) {
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(FolderWatcher::create(loop, [](const std::string&) {}), nullptr);
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
}

} // namespace
} // namespace kelvane::tests
