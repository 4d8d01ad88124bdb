#include "LocalDaemon/Restore/RestorePlan.h"
#include "LocalDaemon/Restore/HardLinks.h"
#include "LocalDaemon/Restore/RestoreArrival.h"
#include "LocalDaemon/Restore/SavedNodes.h"
#include "LocalDaemon/Restore/Staging/RestoreAccess.h"
#include "LocalDaemon/Restore/Staging/RestoreMetadata.h"
#include "LocalDaemon/Restore/Staging/RestoreStaging.h"
#include "Support/Logging.h"
#include "Tests/Harness/AsNobody.h"

#include <chrono>
#include <gtest/gtest.h>
#include <limits>
#include <numeric>

namespace kelvane {
namespace {

SnapshotItem item(const std::string& path, bool isFolder) {
    return {path, isFolder ? ItemKind::Folder : ItemKind::File, isFolder ? 0U : 1U};
}

BackupIndex indexOf(const std::vector<std::vector<SnapshotItem>>& snapshots) {
    BackupIndex index;
    std::int64_t time = 0;
    for (const auto& items : snapshots)
        index =
            indexWith(index, "repository", {std::string(64, static_cast<char>('a' + time)), ++time}, items);
    return index;
}

std::vector<std::string> wholePaths(const BackupIndex& index, const std::string& path,
                                    std::uint32_t snapshot) {
    RestorePlan plan;
    addToPlan(plan, index, {0, index.find(path), path, false});
    return plan[snapshot].whole;
}

// "/a/gone" was deleted before the second snapshot; the partial one contains only a newer "/a/new".
TEST(RestorePlan, AFolderComesAsItLastWasAndWhatWasDeletedBeforeWhenItIsAskedFor) {
    BackupIndex index = indexOf({{item("/a", true), item("/a/gone", true), item("/a/gone/1", false)},
                                 {item("/a", true), item("/a/new", false), item("/a/old", false)}});
    index = indexWith(index, "repository", {std::string(64, 'p'), 3, true},
                      {item("/a", true), item("/a/new", false)});
    EXPECT_EQ(wholePaths(index, "/a", 1), std::vector<std::string>{});
    EXPECT_EQ(wholePaths(index, "/a", 2), std::vector<std::string>{"/a/old"});
    EXPECT_EQ(wholePaths(index, "/a", 3), std::vector<std::string>{"/a"});
    EXPECT_EQ(lastTotals(index, *index.find("/a")).count, 2U);
    EXPECT_EQ(wholePaths(index, "/a/gone", 1), std::vector<std::string>{"/a/gone"});
}

// The index after backups that could not read "/a/unread", without the disk "/away".
TEST(RestorePlan, OnlyWhatASnapshotLacksIsNotCountedAsDeletedBeforeIt) {
    BackupIndex index = indexOf(
        {{item("/a", true), item("/a/gone", false), item("/a/unread", false), item("/a/unreadable", false),
          item("/mnt", true), item("/mnt/away", true), item("/mnt/away/1", false), item("/z", false)}});
    for (const char* id : {"p", "q"})
        index = indexWith(index, "repository", {id, 3, true, 0, "", {"/a/unread", "/mnt/away"}},
                          {item("/a", true), item("/mnt", true)});
    const auto names = [&](const char* folder) {
        std::string all;
        for (const BackupIndex::Item* const each : lastContents(index, *index.find(folder)))
            all.append(index.nameOf(*each)).append(" ");
        return all;
    };
    EXPECT_EQ(names("/a"), "unread ");
    EXPECT_EQ(names("/mnt"), "away ");
    EXPECT_EQ(names("/mnt/away"), "1 ");
}

TEST(RestorePlan, AsksForEachFileOnceAndInCallsThatTheSystemTakes) {
    std::vector<SnapshotItem> many{item("/a", true)};
    for (int number = 0; number < 2000; ++number)
        many.push_back(item("/a/" + std::string(200, 'x') + std::to_string(number), false));
    std::vector<std::string> paths;
    for (const SnapshotItem& each : many)
        paths.push_back(each.path);
    const auto calls = includeArguments({paths, {}});
    std::size_t patterns = 0;
    for (const auto& call : calls) {
        patterns += call.size() / 2;
        const std::size_t bytes = std::accumulate(
            call.begin(), call.end(), std::size_t{0},
            [](std::size_t sum, const std::string& argument) { return sum + argument.size() + 1; });
        EXPECT_LT(bytes, 128U << 10U);
    }
    EXPECT_EQ(patterns, paths.size());
    EXPECT_EQ(includeArguments({{"/a*", "/b"}, {}}),
              (std::vector<std::vector<std::string>>{{"--include", "/a\\*", "--include", "/b"}}));
    EXPECT_EQ(includeArguments({{}, {"/a/b", "/a"}}),
              (std::vector<std::vector<std::string>>{
                  {"--include", "/a", "--include", "!/a/*", "--include", "/a/b", "--include", "!/a/b/*"}}));
    EXPECT_EQ(includeArguments({{"/c"}, {"/a"}}),
              (std::vector<std::vector<std::string>>{{"--include", "/a", "--include", "!/a/*"},
                                                     {"--include", "/c"}}));
    // The paths as restic prints them of a version that the index does not have.
    const BackupIndex index = indexOf({{item("/a", true)}});
    EXPECT_EQ(exclusionArguments(index, {"/a/\ufffd*\ufffd"}),
              (std::vector<std::string>{"--include", "!/a/?\\*?"}));
    std::set<std::string, std::less<>> lost;
    for (int number = 1000; number < 1020; ++number)
        lost.insert('/' + std::string(99'996, 'x') + std::to_string(number));
    EXPECT_EQ(exclusionArguments(index, lost).size(), 2U * 9);
}

TEST(RestoreArrival, SeesThatSomethingComesIntoAFileThatHasItsSizeAlready) {
    const tests::TemporaryFolder folder;
    const BackupIndex index = indexOf({{item("/a", true), item("/a/f", false)}});
    const std::string file = folder.write("1/a/f", "0");
    folder.write("loose", "0"); // in the folder of no snapshot
    const Arrival first = arrivalIn(folder.path(), index);
    EXPECT_EQ(first.files, 1U);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (arrivalIn(folder.path(), index) == first && std::chrono::steady_clock::now() < deadline)
        std::fstream(file, std::ios::in | std::ios::out) << '1'; // again, since file times are coarse
    EXPECT_NE(arrivalIn(folder.path(), index).lastChange, first.lastChange);
    std::vector<std::uint64_t> told;
    ArrivalWatch watch({.stagingFolder = folder.path(),
                        .index = index,
                        .onArrival = [&told](const Arrival& arrival) { told.push_back(arrival.files); },
                        .stallTimeout = std::chrono::milliseconds(0)});
    EXPECT_TRUE(watch.poll());
    bool goesOn = true;
    while (goesOn && std::chrono::steady_clock::now() < deadline)
        goesOn = watch.poll(); // which does nothing for a while after each call
    EXPECT_FALSE(goesOn);
    EXPECT_EQ(told, std::vector<std::uint64_t>{1}) << "nothing more has come";
}

// A file that was made while a backup ran may have the inode number of one that was deleted.
TEST(HardLinks, AreTrustedWhereTheirNamesHadOneContent) {
    namespace fs = std::filesystem;
    const tests::TemporaryFolder folder;
    fs::create_hard_link(folder.write("one", "1"), folder / "two");
    struct stat staged {};
    ASSERT_EQ(::stat((folder / "one").c_str(), &staged), 0);
    const auto faultOf = [&](const std::string& contents, FileTime changed) {
        RepositoryPlace place;
        place.program = folder.writeProgram("restic", R"(#!/bin/sh
            node='"type": "file", "content"'
            [ $2 = snapshot ] && echo '{"tree": "t"}' ||
            echo "{\"nodes\": [{\"name\": \"one\", $node: [\"x\"]}, {\"name\": \"two\", $node: [\")" +
                                                          contents + R"(\"]}]}")");
        const BackupIndex index = indexOf({{{"/one", ItemKind::File, 1, FileTime(1), FileTime(1)},
                                            {"/two", ItemKind::File, 1, FileTime(1), changed}}});
        const StopSignal stop;
        SavedNodes nodes(std::make_shared<const Restic>(place), stop);
        HardLinks links(index, nodes);
        for (const char* const path : {"/one", "/two"})
            links.note(staged, *index.find(path));
        RestoreTrouble trouble;
        EXPECT_FALSE(nodes.find("snapshot", "/three", trouble));
        EXPECT_EQ(trouble.reason, "its snapshot does not contain it");
        return links.faultOf(staged);
    };
    EXPECT_TRUE(faultOf("y", FileTime(2)).ends_with("restore it separately")) << faultOf("y", FileTime(2));
    EXPECT_EQ(faultOf("x", FileTime(2)), "") << "a link was made or removed between";
    EXPECT_EQ(faultOf("y", FileTime(1)), "") << "the repository is not asked";
}

TEST(SavedNodes, ReadsNamesAsTreesHaveThem) {
    EXPECT_EQ(nameInTree(R"(a\"\\\n\xff\u00a0\U0001f600\)"), "a\"\\\n\xff\u00a0\U0001f600\\");
}

TEST(RestoreMetadata, AModeGivesNobodyMoreThanWasSaved) {
    const std::tuple<mode_t, bool, bool, mode_t, mode_t> cases[] = {
        {04754, true, true, 04754, 7}, {04754, false, true, 0754, 7}, {02754, true, false, 0744, 7},
        {0674, true, false, 0644, 7},  {0604, true, false, 0600, 7},  {0467, false, true, 0444, 7},
        {0644, true, false, 0600, 0},  {0644, true, true, 0644, 0}};
    for (const auto& [saved, hasItsOwner, hasItsGroup, given, aclOfGroup] : cases) {
        struct stat now {};
        now.st_uid = hasItsOwner ? 1 : 3;
        now.st_gid = hasItsGroup ? 2 : 3;
        EXPECT_EQ(modeFor({1, 2, saved, aclOfGroup}, now), given) << std::oct << saved;
    }
}

TEST(RestoreMetadata, SaysWhatCannotBeSet) {
    const tests::TemporaryFolder folder;
    folder.write("file", std::string(1U << 20U, '1') + std::string(1U << 20U, '\0'));
    const FileDescriptor opened = openFolder(folder.path());
    EXPECT_EQ(digHoles(opened.get(), "file"), "");
    struct stat status {};
    ASSERT_EQ(::stat((folder / "file").c_str(), &status), 0);
    EXPECT_LT(status.st_blocks * 512, 1'200'000) << "the zeros at the end take no space";
    const tests::AsNobody nobody(folder);
    const FileDescriptor foreign = openFolder("/usr");
    const FileDescriptor readOnly = openFolder("/proc");
    const FolderMetadata metadata(opened.get(), {.mode = 0700}, FileTime(status.st_mtim));
    using Use = FolderMetadata::Use;
    const std::string none = "No such file or directory";
    const std::string notPermitted = " cannot be set: Operation not permitted";
    const std::pair<std::string, std::string> cases[] = {
        {digHoles(opened.get(), "none"), none},
        {setSavedTime(opened.get(), "none", FileTime(1)), none},
        {setSavedTime(opened.get(), "file", FileTime(253386500800)),
         "restored with a different time: its own is outside the years that restic keeps"},
        {narrowFolder(-1, {}, {}), "Bad file descriptor"},
        {narrowFolder(foreign.get(), {.mode = 0700}, {}), "its mode" + notPermitted},
        {FolderMetadata(-1, {}, {}).applyTo(opened.get(), Use::Final), "Bad file descriptor"},
        {metadata.applyTo(-1, Use::Final), "its owner cannot be set: " + none},
        {metadata.applyTo(readOnly.get(), Use::Final), "its mode" + notPermitted},
        {metadata.applyTo(foreign.get(), Use::Final), "its mode or times" + notPermitted},
        {setAttributes(folder.path(), {{"trusted.other", "1"}}), ""},
        {setAttributes(folder.path(), {{"user.", "1"}}),
         "its attribute user. cannot be set: Invalid argument"},
    };
    for (const auto& [said, expected] : cases)
        EXPECT_EQ(said, expected);
}

TEST(RestoreStaging, StandsBesideThePlaceOrInTheFolderThatIsThere) {
    const tests::TemporaryFolder folder;
    folder.write("there/file", "");
    const std::tuple<std::string, bool, std::string> cases[] = {{"there", true, "there"},
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
    EXPECT_EQ(StagingFolder(folder / "not/there").failure(),
              folder / "not/there" + " cannot be created: No such file or directory");
    const StagingFolder staging(folder / ".kelvane-restore-1");
    for (const char* name : {"from/a/both", "from/new", "into/a/both"})
        folder.write(std::string(".kelvane-restore-1/") + name, name);
    EXPECT_TRUE(staging.merge("from", "into"));
    EXPECT_EQ(folder.read(".kelvane-restore-1/into/a/both"), "from/a/both");
    EXPECT_EQ(folder.read(".kelvane-restore-1/into/new"), "from/new");
    EXPECT_FALSE(std::filesystem::exists(folder / ".kelvane-restore-1/from"));
    EXPECT_EQ(freeSpaceAt(folder / "none"), std::numeric_limits<std::uint64_t>::max());
    std::filesystem::permissions(folder / "there", std::filesystem::perms(0555));
    const tests::AsNobody nobody(folder);
    EXPECT_NE(stagingPlaceFor(folder / "there", true).folder, folder / "there");
    EXPECT_EQ(stagingPlaceFor("/usr/new", false).reason, "nothing can be written in /usr");
    std::string said;
    const LogSinkToken log = setLogSink([&said](const LogEntry& entry) { said += entry.text; });
    std::filesystem::create_directories(folder / "own/.kelvane-restore-1");
    std::filesystem::permissions(folder / "own", std::filesystem::perms(0555));
    EXPECT_TRUE(removeStaging(folder / "own/.kelvane-restore-3"));
    EXPECT_FALSE(removeStaging(folder / "own/.kelvane-restore-1"));
    EXPECT_TRUE(said.ends_with("/.kelvane-restore-1 cannot be removed: Permission denied")) << said;
    EXPECT_TRUE(endAccess(folder / "none", 0500));
    EXPECT_FALSE(endAccess(folder / "none/below", 0500)) << "its disk may not be mounted";
    EXPECT_TRUE(endAccess("/usr", 0555));
    EXPECT_TRUE(said.ends_with("The mode of /usr cannot be restored: Operation not permitted")) << said;
}

} // namespace
} // namespace kelvane
