#include "Platform/Files/DirectoryWatch.h"

#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <map>

namespace kelvane {
namespace {

using namespace std::chrono_literals;
using Change = DirectoryWatch::Change;
using Contents = DirectoryWatch::Contents;
using Outcome = DirectoryWatch::Outcome;
using Changes = std::map<std::string, Change>;

class DirectoryWatchTest : public testing::Test {
protected:
    // Returns all events so far: the kernel queues a change before the call that made it returns.
    static Changes changesOf(DirectoryWatch& watch) {
        Changes all;
        for (auto events = watch.wait(0ms); !events.empty(); events = watch.wait(0ms))
            for (const auto& [path, change] : events)
                all[path] = change;
        return all;
    }
    Changes changes() { return changesOf(watch_); }
    Changes changed(const std::string& name) const { return {{folder_ / name, Change::Changed}}; }
    void watch(const std::string& name) { EXPECT_EQ(watch_.add(folder_ / name), Outcome::Watching) << name; }
    void rename(const char* from, const char* to) const {
        std::filesystem::rename(folder_ / from, folder_ / to);
    }

    const tests::TemporaryFolder folder_;
    DirectoryWatch watch_;
};

TEST_F(DirectoryWatchTest, TellsWhatHappensToTheEntriesOfAFolderAndNothingElse) {
    const std::string file = folder_.write("in/file", "1");
    folder_.write("in/deeper/file", "1");
    folder_.write("out/file", "1");
    const std::tuple<const char*, std::function<void()>, bool, bool> cases[] = {
        {"create", [&] { folder_.write("in/new", ""); }, true, true},
        {"rename", [&] { rename("in/new", "in/renamed"); }, true, true},
        {"move out", [&] { rename("in/renamed", "out/new"); }, true, true},
        {"move in", [&] { rename("out/new", "in/new"); }, true, true},
        {"delete", [&] { std::filesystem::remove(folder_ / "in/new"); }, true, true},
        {"grow", [&] { std::ofstream(file, std::ios::app) << "2"; }, false, true},
        {"truncate", [&] { std::filesystem::resize_file(file, 0); }, false, true},
        {"change deeper", [&] { folder_.write("in/deeper/new", "1"); }, false, false},
        {"read", [&] { static_cast<void>(folder_.read("in/file")); }, false, false}};
    DirectoryWatch entries(Contents::Ignored);
    DirectoryWatch contents(Contents::Watched);
    ASSERT_EQ(entries.add(folder_ / "in"), Outcome::Watching);
    ASSERT_EQ(contents.add(folder_ / "in"), Outcome::Watching);
    for (const auto& [what, act, isEntry, isContents] : cases) {
        act();
        EXPECT_EQ(changesOf(entries), isEntry ? changed("in") : Changes()) << what;
        EXPECT_EQ(changesOf(contents), isContents ? changed("in") : Changes()) << what;
    }
}

TEST_F(DirectoryWatchTest, TellsABurstOnceAndUnderEveryPathOfTheFolder) {
    folder_.write("real/file", "");
    std::filesystem::create_directory_symlink("real", folder_ / "link");
    watch("real");
    watch("link");
    for (int number = 0; number < 100; ++number)
        folder_.write("real/" + std::to_string(number), "");
    EXPECT_EQ(watch_.wait(0ms).size(), 2U);

    watch_.remove(folder_ / "real");
    folder_.write("real/another", "");
    EXPECT_EQ(changes(), changed("link"));
    watch_.remove(folder_ / "link");
    folder_.write("real/last", "");
    EXPECT_EQ(changes(), Changes());
}

TEST_F(DirectoryWatchTest, FollowsAPathThroughDeletionMovesAndReturn) {
    folder_.write("top/a/b/file", "");
    for (const char* name : {"top", "top/a", "top/a/b"})
        watch(name);
    rename("top/a", "top/new");
    watch("top/new"); // under its new name before the move is reported
    EXPECT_EQ(changes(), (Changes{{folder_ / "top", Change::Changed},
                                  {folder_ / "top/a", Change::Gone},
                                  {folder_ / "top/a/b", Change::Gone},
                                  {folder_ / "top/new", Change::Changed}}));
    folder_.write("top/new/b/unwatched", "");
    EXPECT_EQ(changes(), Changes());
    folder_.write("top/new/watched", "");
    EXPECT_EQ(changes(), changed("top/new"));

    const auto expectWatchedAgain = [&] {
        EXPECT_EQ(changes()[folder_ / "top/a/b"], Change::Changed);
        folder_.write("top/a/b/watched", "");
        EXPECT_EQ(changes(), changed("top/a/b"));
    };
    folder_.write("top/a/b/file", ""); // other folders under the same paths
    expectWatchedAgain();
    std::filesystem::remove_all(folder_ / "top/a/b");
    EXPECT_EQ(changes()[folder_ / "top/a/b"], Change::Gone);
    rename("top/new/b", "top/a/b");
    expectWatchedAgain();
}

TEST_F(DirectoryWatchTest, RefusesWhatIsNoFolderAndStopsAtItsLimit) {
    folder_.write("one/file", "");
    folder_.write("two/file", "");
    DirectoryWatch limited(Contents::Ignored, 1);
    EXPECT_EQ(limited.add(folder_ / "one/file"), Outcome::Refused);
    EXPECT_EQ(limited.add(folder_ / "missing"), Outcome::Refused);
    EXPECT_EQ(limited.add(folder_ / "one"), Outcome::Watching);
    EXPECT_EQ(limited.add(folder_ / "one"), Outcome::Watching);
    EXPECT_EQ(limited.add(folder_ / "two"), Outcome::LimitReached);
    limited.remove(folder_ / "one");
    EXPECT_EQ(limited.add(folder_ / "two"), Outcome::Watching);
}

} // namespace
} // namespace kelvane
