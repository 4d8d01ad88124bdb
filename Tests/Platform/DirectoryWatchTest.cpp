#include "Platform/DirectoryWatch.h"

#include "Tests/Harness/TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <thread>

namespace kelvane {
namespace {

using namespace std::chrono_literals;
using tests::TemporaryFolder;
using Change = DirectoryWatch::Change;
using Contents = DirectoryWatch::Contents;
using Outcome = DirectoryWatch::Outcome;

// Everything that the system has to tell by now: it queues a change before the call that made it returns.
std::map<std::string, Change> changes(DirectoryWatch& watch) {
    std::map<std::string, Change> all;
    for (auto events = watch.wait(0ms); !events.empty(); events = watch.wait(0ms))
        for (const auto& [path, change] : events)
            all[path] = change;
    return all;
}

using Expected = std::map<std::string, Change>;

TEST(DirectoryWatch, TellsWhatHappensToTheEntriesOfAFolderAndNothingElse) {
    const TemporaryFolder folder;
    const std::string file = folder.write("in/file", "1");
    folder.write("in/deeper/file", "1");
    folder.write("out/file", "1");
    const std::string watched = folder / "in";
    const struct {
        const char* what;
        std::function<void()> act;
        bool isEntry;
        bool isContents;
    } cases[] = {
        {"create", [&] { folder.write("in/new", ""); }, true, true},
        {"rename", [&] { std::filesystem::rename(folder / "in/new", folder / "in/renamed"); }, true, true},
        {"move out", [&] { std::filesystem::rename(folder / "in/renamed", folder / "out/new"); }, true, true},
        {"move in", [&] { std::filesystem::rename(folder / "out/new", folder / "in/new"); }, true, true},
        {"delete", [&] { std::filesystem::remove(folder / "in/new"); }, true, true},
        {"grow", [&] { std::ofstream(file, std::ios::app) << "2"; }, false, true},
        {"truncate", [&] { std::filesystem::resize_file(file, 0); }, false, true},
        {"change deeper", [&] { folder.write("in/deeper/new", "1"); }, false, false},
        {"read", [&] { static_cast<void>(folder.read("in/file")); }, false, false},
    };
    DirectoryWatch entries(Contents::Ignored);
    DirectoryWatch contents(Contents::Watched);
    ASSERT_EQ(entries.add(watched), Outcome::Watching);
    ASSERT_EQ(contents.add(watched), Outcome::Watching);
    const Expected changed{{watched, Change::Changed}};
    for (const auto& [what, act, isEntry, isContents] : cases) {
        act();
        EXPECT_EQ(changes(entries), isEntry ? changed : Expected()) << what;
        EXPECT_EQ(changes(contents), isContents ? changed : Expected()) << what;
    }
}

TEST(DirectoryWatch, TellsABurstOnceAndUnderEveryPathOfTheFolder) {
    const TemporaryFolder folder;
    folder.write("real/file", "");
    std::filesystem::create_directory_symlink("real", folder / "link");
    DirectoryWatch watch;
    ASSERT_EQ(watch.add(folder / "real"), Outcome::Watching);
    ASSERT_EQ(watch.add(folder / "link"), Outcome::Watching);
    for (int number = 0; number < 100; ++number)
        folder.write("real/" + std::to_string(number), "");
    EXPECT_EQ(watch.wait(0ms).size(), 2U);

    watch.remove(folder / "real");
    folder.write("real/another", "");
    EXPECT_EQ(changes(watch), (Expected{{folder / "link", Change::Changed}}));
    watch.remove(folder / "link");
    folder.write("real/last", "");
    EXPECT_EQ(changes(watch), Expected());
}

TEST(DirectoryWatch, FollowsAPathThroughDeletionMovesAndReturn) {
    const TemporaryFolder folder;
    folder.write("a/b/file", "");
    DirectoryWatch watch;
    for (const std::string& path : {folder.path(), folder / "a", folder / "a/b"})
        ASSERT_EQ(watch.add(path), Outcome::Watching);

    std::filesystem::rename(folder / "a", folder / "elsewhere");
    EXPECT_EQ(changes(watch), (Expected{{folder.path(), Change::Changed},
                                        {folder / "a", Change::Gone},
                                        {folder / "a/b", Change::Gone}}));
    folder.write("elsewhere/b/unwatched", "");
    EXPECT_EQ(changes(watch), Expected());

    folder.write("a/b/file", ""); // other folders under the same paths
    EXPECT_EQ(changes(watch)[folder / "a/b"], Change::Changed);
    folder.write("a/b/watched", "");
    EXPECT_EQ(changes(watch), (Expected{{folder / "a/b", Change::Changed}}));

    std::filesystem::remove_all(folder / "a/b");
    EXPECT_EQ(changes(watch)[folder / "a/b"], Change::Gone);
    std::filesystem::rename(folder / "elsewhere/b", folder / "a/b");
    EXPECT_EQ(changes(watch)[folder / "a/b"], Change::Changed);
    folder.write("a/b/watched", "");
    EXPECT_EQ(changes(watch), (Expected{{folder / "a/b", Change::Changed}}));
}

TEST(DirectoryWatch, KeepsAFolderThatIsAddedUnderItsNewNameBeforeTheMoveIsTold) {
    const TemporaryFolder folder;
    folder.write("old/file", "");
    DirectoryWatch watch;
    ASSERT_EQ(watch.add(folder / "old"), Outcome::Watching);
    std::filesystem::rename(folder / "old", folder / "new");
    ASSERT_EQ(watch.add(folder / "new"), Outcome::Watching);
    EXPECT_EQ(changes(watch)[folder / "old"], Change::Gone);
    folder.write("new/another", "");
    EXPECT_EQ(changes(watch), (Expected{{folder / "new", Change::Changed}}));
}

TEST(DirectoryWatch, RefusesWhatIsNoFolderAndStopsAtItsLimit) {
    const TemporaryFolder folder;
    const std::string file = folder.write("one/file", "");
    folder.write("two/file", "");
    DirectoryWatch watch(Contents::Ignored, 1);
    EXPECT_EQ(watch.add(file), Outcome::Refused);
    EXPECT_EQ(watch.add(folder / "missing"), Outcome::Refused);
    EXPECT_EQ(watch.add(folder / "one"), Outcome::Watching);
    EXPECT_EQ(watch.add(folder / "one"), Outcome::Watching);
    EXPECT_EQ(watch.add(folder / "two"), Outcome::LimitReached);
    watch.remove(folder / "one");
    EXPECT_EQ(watch.add(folder / "two"), Outcome::Watching);
}

TEST(DirectoryWatch, TellsWhenTheSystemHasDroppedChanges) {
    std::size_t longestQueue = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> longestQueue;
    const TemporaryFolder folder;
    DirectoryWatch watch;
    ASSERT_EQ(watch.add(folder.path()), Outcome::Watching);
    for (std::size_t events = 0; events <= longestQueue; events += 2) {
        folder.write("file", "");
        std::filesystem::remove(folder / "file");
    }
    EXPECT_TRUE(changes(watch).contains(""));
    folder.write("file", "");
    EXPECT_EQ(changes(watch), (Expected{{folder.path(), Change::Changed}}));
}

TEST(DirectoryWatch, WakesItsWaiterNowAndBeforehand) {
    const TemporaryFolder folder;
    DirectoryWatch watch;
    watch.wake();
    EXPECT_TRUE(watch.wait(std::nullopt).empty());
    ASSERT_EQ(watch.add(folder.path()), Outcome::Watching);
    std::thread waiter([&] { EXPECT_EQ(watch.wait(std::nullopt).size(), 1U); });
    folder.write("file", "");
    waiter.join();
    std::thread another([&] { EXPECT_TRUE(watch.wait(std::nullopt).empty()); });
    watch.wake();
    another.join();
}

} // namespace
} // namespace kelvane
