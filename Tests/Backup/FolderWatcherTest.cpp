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
        told.clear();
        return loop->runUntil([&] { return std::ranges::find(told, path) != told.end(); });
    }

    const TemporaryFolder folder;
    const std::string file = folder.write("disk/in/file", "");
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
    folder.write("disk/in/new", "");
    EXPECT_TRUE(isTold("/Volumes/USB/in"));
    std::filesystem::rename(folder / "disk/in/new", folder / "disk/in/other");
    EXPECT_TRUE(isTold("/Volumes/USB/in"));
    std::filesystem::remove(folder / "disk/in/other");
    EXPECT_TRUE(isTold("/Volumes/USB/in"));
    folder.write("disk/beside", "");
    EXPECT_TRUE(isTold("/Volumes/USB"));
}

TEST_F(FolderWatcherTest, TellsABurstAFewTimesOnlyAndItsEnd) {
    watch("/Volumes/USB/in");
    const auto end = std::chrono::steady_clock::now() + 500ms;
    for (int made = 0; std::chrono::steady_clock::now() < end; loop->runPosted())
        folder.write("disk/in/" + std::to_string(++made), "");
    EXPECT_LE(std::ranges::count(told, "/Volumes/USB/in"), 3);
    EXPECT_TRUE(isTold("/Volumes/USB/in"));
}

TEST_F(FolderWatcherTest, IsNotMadeWhereNothingCanBeWatched) {
    watcher.reset(); // it could not wait meanwhile
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(FolderWatcher::create(loop, [](const std::string&) {}), nullptr);
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
}

} // namespace
} // namespace kelvane::tests
