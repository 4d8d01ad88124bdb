#include "LocalDaemon/RestorePlan.h"
#include "LocalDaemon/RestoreStaging.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <numeric>

namespace kelvane {
namespace {

SnapshotItem item(const std::string& path, bool isFolder) {
    return {path, isFolder ? ItemKind::Folder : ItemKind::File, isFolder ? 0U : 1U};
}

// Three snapshots: "/a/old" and all of "/a/gone" are in the first alone, "/a/some" files in the second too.
BackupIndex indexOf(const std::vector<std::vector<SnapshotItem>>& snapshots) {
    BackupIndex index;
    std::int64_t time = 0;
    for (const auto& items : snapshots)
        index =
            indexWith(index, "repository", {std::string(64, static_cast<char>('a' + time)), ++time}, items);
    return index;
}

TEST(RestorePlan, AsksEachSnapshotForWhatNoNewerOneHolds) {
    const BackupIndex index =
        indexOf({{item("/a", true), item("/a/old", false), item("/a/gone", true), item("/a/gone/1", false),
                  item("/a/gone/2", false), item("/a/new", false)},
                 {item("/a", true), item("/a/gone", true), item("/a/gone/2", false), item("/a/new", false)},
                 {item("/a", true), item("/a/new", false)}});
    SnapshotPaths plan;
    addToPlan(plan, index, *index.find("/a"));
    EXPECT_EQ(plan, (SnapshotPaths{{1, {"/a/gone/1", "/a/old"}}, {2, {"/a/gone"}}, {3, {"/a"}}}));
    plan.clear();
    addToPlan(plan, index, *index.find("/a/gone/1"));
    EXPECT_EQ(plan, (SnapshotPaths{{1, {"/a/gone/1"}}}));
}

TEST(RestorePlan, AsksForEachFileOnceAndInCallsThatTheSystemTakes) {
    std::vector<SnapshotItem> many{item("/a", true)};
    for (int number = 0; number < 2000; ++number)
        many.push_back(item("/a/" + std::string(200, 'x') + std::to_string(number), false));
    const BackupIndex index = indexOf({many, {item("/a", true)}});
    SnapshotPaths plan;
    addToPlan(plan, index, *index.find("/a"));
    EXPECT_EQ(plan[1].size(), 2000U) << "the rest of the folder is in the newer one";
    EXPECT_EQ(plan[2], std::vector<std::string>{"/a"});

    std::vector<std::string> paths;
    for (const SnapshotItem& each : many)
        paths.push_back(each.path);
    const auto calls = includeArguments(paths);
    std::size_t patterns = 0;
    for (const auto& call : calls) {
        patterns += call.size() / 2;
        const std::size_t bytes = std::accumulate(
            call.begin(), call.end(), std::size_t{0},
            [](std::size_t sum, const std::string& argument) { return sum + argument.size() + 1; });
        EXPECT_LT(bytes, 128U << 10U);
    }
    EXPECT_EQ(patterns, paths.size());
    EXPECT_EQ(includeArguments({"/a*", "/b"}),
              (std::vector<std::vector<std::string>>{{"--include", "/a\\*", "--include", "/b"}}));
}

TEST(RestoreStaging, StandsBesideThePlaceOrInTheFolderThatIsThere) {
    const tests::TemporaryFolder folder;
    folder.write("there/file", "");
    const struct {
        std::string target;
        bool isFolder;
        std::string place;
    } cases[] = {{"there", true, "there"},
                 {"there", false, ""},
                 {"there/file", false, "there"},
                 {"not/there/yet", true, ""},
                 {"there/new", true, "there"}};
    for (const auto& [target, isFolder, place] : cases) {
        const StagingPlace found = stagingPlaceFor(folder / target, isFolder);
        EXPECT_EQ(found.kind, StagingPlace::Kind::Ready);
        EXPECT_EQ(found.folder, place.empty() ? folder.path() : folder / place) << target;
    }
    EXPECT_EQ(stagingPlaceFor(folder / "there/file/below", false).kind, StagingPlace::Kind::Nowhere);
}

} // namespace
} // namespace kelvane
