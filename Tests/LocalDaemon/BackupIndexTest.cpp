#include "LocalDaemon/Index/BackupIndex.h"

#include "LocalDaemon/Index/LateChanges.h"
#include "LocalDaemon/Restic/ResticJson.h"
#include "LocalDaemon/Rules/BackupTargets.h"
#include "Tests/Harness/AsNobody.h"
#include "Tests/LocalDaemon/BackedUpFolder.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace kelvane {
namespace {

SnapshotItem file(const std::string& path, std::uint64_t size, std::int64_t modified = 1) {
    return {path, ItemKind::File, size, FileTime(modified), FileTime(modified), 10, 20, 0600};
}
SnapshotItem folder(const std::string& path) {
    return {path, ItemKind::Folder, 0, FileTime(1), FileTime(1), 10, 20};
}

// Names whose byte order differs from the order of their paths.
const std::vector<SnapshotItem> first{folder("/h"),          file("/h/a b", 1), folder("/h/a"),
                                      file("/h/a/x", 2),     file("/h/a.c", 4), folder("/h/empty"),
                                      file("/other/y", 8, 5)};

using Paths = std::vector<std::string>;

Paths pathsIn(const BackupIndex& index) {
    Paths paths;
    index.forEach([&](const BackupIndex::Item& item) { paths.push_back(index.pathOf(item)); });
    return paths;
}

TEST(BackupIndex, FindsEachPathAndSumsUpWhatIsBelow) {
    const BackupIndex index = indexWith({}, "repository", {"one", 100, false}, first);
    for (const std::string& path : pathsIn(index))
        EXPECT_EQ(index.pathOf(*index.find(path)), path);
    EXPECT_EQ(index.itemCount(), first.size() + 2); // "/" and "/other"
    EXPECT_EQ(index.totals(), (FileTotals{4, 15}));
    EXPECT_EQ(index.totalsOf(*index.find("/h")), (FileTotals{3, 7}));
    EXPECT_EQ(index.children(*index.find("/h")).size(), 4U);
    EXPECT_FALSE(index.hasContent(*index.find("/h/empty")));
    EXPECT_EQ(index.find("/other")->snapshot, 0U); // only its contents are known
    for (const char* path : {"/h/b", "/h/a/x/z", "/h/a ", "/z"})
        EXPECT_EQ(index.find(path), nullptr) << path;
}

TEST(BackupIndex, KeepsWhatALaterSnapshotDoesNotHoldAndSinceWhenAFileIsAsItIs) {
    const BackupIndex one = indexWith({}, "repository", {"one", 100, false}, first);
    const BackupIndex two = indexWith(one, "repository", {"two", 200, false},
                                      {folder("/h"), file("/h/a b", 1), file("/h/a.c", 5, 9)});
    const auto timesOf = [&](const char* path) {
        return std::tuple(two.find(path)->backedUp, two.find(path)->version, two.find(path)->snapshot);
    };
    using Times = std::tuple<std::int64_t, std::uint32_t, std::uint32_t>;
    EXPECT_EQ(timesOf("/h/a b"), Times(100, 1, 2));
    EXPECT_EQ(timesOf("/h/a.c"), Times(200, 2, 2));
    EXPECT_EQ(timesOf("/h/a/x"), Times(100, 1, 1));

    const BackupIndex kept = indexOfKept(two, {{"two", 200, false}});
    EXPECT_EQ(kept.find("/h/a/x"), nullptr);
    EXPECT_EQ(kept.totals(), (FileTotals{2, 6}));
    EXPECT_EQ(indexWith(kept, "repository", {"three", 300, true}, {}).find("/h/a b")->snapshot, 2U);
}

TEST(BackupIndex, IsTheSameFromItsFileAndRefusesADamagedOne) {
    BackupIndex index =
        indexWith({}, "repository", {"one", 100, true, 0, "", {"/other", "/unread \xff"}}, first);
    index = indexWith(index, "repository", {"two", 200, true}, {});
    std::vector<std::uint8_t> bytes = index.encoded();
    const auto read = BackupIndex::decoded(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(pathsIn(*read), pathsIn(index));
    EXPECT_EQ(read->snapshots(), index.snapshots());
    EXPECT_EQ(read->repositoryId(), "repository");
    EXPECT_EQ(read->totals(), index.totals());
    const BackupIndex::Item item = *read->find("/other/y");
    EXPECT_EQ(std::tuple(item.modified, item.uid, item.gid, item.mode),
              std::tuple(FileTime(5), 10U, 20U, 0600U));
    EXPECT_EQ(read->encoded(), bytes);
    for (std::size_t at = 0; at < bytes.size(); at += 7) {
        ++bytes[at];
        EXPECT_FALSE(BackupIndex::decoded(bytes)) << at;
        EXPECT_FALSE(BackupIndex::decoded(std::span(bytes).first(at))) << at;
        --bytes[at];
    }
}

// No contents of a repository or an index file may crash the daemon.
TEST(BackupIndex, TakesWhatNoRepositoryInOrderHolds) {
    BackedUpItem newer{file("/h/d", 2), 200, 2, 2};
    BackedUpItem older{folder("/h/d"), 100, 1, 1};
    BackedUpItem below{file("/h/d/x", 1), 100, 1, 1};
    const BackupIndex index("repository", {{1, {"one"}}, {2, {"two"}}}, {older, below, newer, older, below});
    EXPECT_EQ(pathsIn(index), (Paths{"/", "/h", "/h/d", "/h/d/x"}));
    EXPECT_EQ(index.find("/h/d")->kind, ItemKind::File);
}

// Items of a folder that were saved at their last change.
class LateChanges : public testing::Test {
protected:
    LateChanges() {
        for (const std::string name : {"late", "longer", "special"}) {
            home.write(name, "1");
            if (name == "special")
                ::chmod((home / name).c_str(), S_ISUID | S_IRUSR);
            saved.push_back(tests::itemAt(home / name));
        }
        saved[1].size = 2;
        std::filesystem::create_symlink("late", home / "link");
        saved.push_back(tests::itemAt(home / "link"));
    }
    std::size_t take(FileTime since, const BackupIndex& before = {},
                     const std::vector<std::string>& readAgain = {}) {
        items = saved;
        return takeLateChanges(items, before, since, readAgain);
    }
    [[nodiscard]] std::vector<bool> areUncertain() const {
        std::vector<bool> are;
        for (const SnapshotItem& each : items)
            are.push_back(isUncertain(each.changed));
        return are;
    }

    const tests::TemporaryFolder home;
    std::vector<SnapshotItem> saved, items;
};

TEST_F(LateChanges, TouchWhatMayHaveChangedAgainAfterItWasRead) {
    const FileTime begin = saved.front().changed;
    EXPECT_EQ(take(FileTime(begin.seconds() + 3)), 0U);
    // When no other time can be set, here because the clock has not advanced, the item itself is changed.
    do
        EXPECT_EQ(take(begin), 4U);
    while (areUncertain() != std::vector{false, false, false, false});
    for (const SnapshotItem& each : saved) // the longer one is seen to have changed
        EXPECT_EQ(tests::itemAt(each.path).changed == each.changed, each.size == 2) << each.path;
    EXPECT_EQ(tests::itemAt(home / "special").mode, S_ISUID | S_IRUSR);
}

TEST_F(LateChanges, AreUncertainUntilTheFileIsReadAgain) {
    const FileTime later(saved.front().changed.seconds() + 3);
    std::vector<BackedUpItem> held{{saved[1], 0, 1, 1}, {saved[3], 0, 1, 1}};
    held[0].item.size = 1;
    for (BackedUpItem& each : held)
        each.item.changed = asUncertain(each.item.changed);
    const BackupIndex before = *BackupIndex::decoded(BackupIndex("", {}, held).encoded());
    const std::string path = home / "longer";
    EXPECT_EQ(uncertainFiles(before), std::vector<std::string>{path});
    EXPECT_FALSE(isUnchanged(*before.find(path), ItemKind::File, 1, saved[1].modified, saved[1].changed));
    take(later, before);
    EXPECT_EQ(areUncertain(), (std::vector{false, true, false, false})) << "links are always read";
    take(later, before, {path});
    EXPECT_EQ(areUncertain(), (std::vector{false, false, false, false}));
}

// restic saves times of the years 0 to 9999; for later ones it keeps the month and day in the last year.
TEST(BackupIndex, ComparesTimesBeyondTheRangeOfNanoseconds) {
    const FileTime in2300(10413792000, 1);
    const FileTime before1678(-10413792000, 999'999'999);
    const FileTime in9999(253386500800);
    const FileTime in14645(400000000000);
    const FileTime inYear0(-62150000000), beforeYear0(-70000000000);
    const std::tuple<FileTime, FileTime, bool> cases[] = {
        {in2300, in2300, true},         {in2300, FileTime(10413792000), false},
        {before1678, before1678, true}, {in9999, in14645, true},
        {in2300, in14645, false},       {in9999, FileTime(0), false},
        {in9999, in2300, false},        {inYear0, beforeYear0, true},
        {in9999, beforeYear0, false}};
    for (const auto& [saved, onDisk, isSame] : cases) {
        SnapshotItem item = file("/f", 1);
        item.modified = saved;
        const BackupIndex index = indexWith({}, "repository", {"one", 1, false}, {item});
        const auto read = BackupIndex::decoded(index.encoded());
        ASSERT_TRUE(read);
        EXPECT_EQ(isUnchanged(*read->find("/f"), ItemKind::File, 1, onDisk, FileTime(1)), isSame)
            << saved.seconds() << ' ' << onDisk.seconds();
        FileAttributes attributes;
        attributes.kind = FileAttributes::Kind::File;
        attributes.size = 1;
        attributes.modified = dateFromTime(onDisk.seconds(), onDisk.nanoseconds());
        attributes.statusChanged = dateFromTime(1);
        const bool isNanosecond = saved.seconds() == onDisk.seconds() && saved != onDisk;
        if (!isNanosecond) { // a Date cannot represent it
            EXPECT_EQ(isUnchanged(*read->find("/f"), attributes), isSame) << onDisk.seconds();
        }
    }
}

TEST(ResticJson, TakesWhatItKnowsAndNothingElse) {
    EXPECT_EQ(timeFrom("1970-01-01T01:00:00.5+01:00"), FileTime(0, 500'000'000));
    EXPECT_EQ(timeFrom("1969-12-31T23:59:59.999999999Z"), FileTime(-1, 999'999'999));
    EXPECT_EQ(timeFrom("2000-02-29T12:00:00-00:30"), FileTime(951827400));
    EXPECT_EQ(timeFrom("2300-01-01T00:00:00.000000001Z"), FileTime(10413792000, 1));
    EXPECT_EQ(timeFrom("0000-10-15T19:33:20Z"), FileTime(-62142265600));
    for (const char* wrong :
         {"", "2001-02-29T12:00:00Z", "2001-02-03T12:00:00", "2001-02-03 12:00:00Z", "x",
          "2001-02-29T12:00:00+01", "2001-02-03T12:00:00+1:00", "2001-02-03T12:00:00+0100"})
        EXPECT_FALSE(timeFrom(wrong)) << wrong;
    const auto item = itemFrom(R"({"type":"symlink","path":"/a\"b","uid":7,"mtime":"1970-01-01T00:00:01Z"})");
    ASSERT_TRUE(item);
    EXPECT_EQ(item->item.path, "/a\"b");
    EXPECT_EQ(item->item.kind, ItemKind::Link);
    EXPECT_EQ(item->item.modified, FileTime(1));
    for (const char* wrong : {"", "[]", "null", R"({"type":"file","path":5})"})
        EXPECT_FALSE(itemFrom(wrong)) << wrong;
    EXPECT_FALSE(itemFrom(R"({"type":"fifo","path":"/a"})")->isKept);
    for (const char* wrong : {"", "null", "{}", R"([{"time":"2001-02-03T12:00:00Z"}])", R"([{"id":"a"})"})
        EXPECT_FALSE(snapshotsFrom(wrong, "part")) << wrong;
    EXPECT_EQ(snapshotsFrom("[]", "part"), std::vector<Snapshot>());
    EXPECT_EQ(snapshotsFrom(R"([{"id":"a","time":"1970-01-01T00:00:01Z","tags":["part"]}])", "part"),
              (std::vector<Snapshot>{{"a", 1, true}}));
    EXPECT_EQ(backupLineFrom("no JSON").kind, BackupLine::Kind::Other);
    for (const auto& [error, isDeleted] : {std::pair("2", true), std::pair("13", false)}) {
        const std::string line = R"({"message_type":"error","error":{"Op":"lstat","Err":)" +
                                 std::string(error) + R"(},"item":"/a"})";
        EXPECT_EQ(backupLineFrom(line).path, "/a");
        EXPECT_EQ(backupLineFrom(line).isDeleted, isDeleted);
    }
}

TEST(BackupTargets, HoldAllThatIsInAndNothingElseInFewPaths) {
    const tests::TemporaryFolder home;
    for (const char* name :
         {"whole/a", "whole/deep/b", "part/in", "part/out", "part/cache/c", "single", "left/cache/c"})
        home.write(name, "1");
    std::filesystem::create_directory(home / "empty");
    BackupRules rules{
        .home = home.path(), .policy = {home / "part/cache/", home / "left/cache/"}, .paths = {}};
    rules.paths.exclusions.insert(home / "part/out");
    const auto mounted = std::make_shared<MountPoints>();
    const auto targets = [&](const std::string& path) {
        const MountedSelection selection(std::make_shared<BackupRules>(rules), mounted);
        auto [found, emptied, mounts, unread] = backupTargets(selection, path, std::atomic<bool>(false));
        EXPECT_EQ(mounts, rules.volumes.empty() && !mounted->empty() ? Paths{home / "part"} : Paths())
            << path;
        EXPECT_EQ(std::ranges::count(found, home / "left"), std::ssize(emptied)) << path;
        std::ranges::sort(found);
        return found;
    };
    const Paths all{home / "empty", home / "left", home / "part/in", home / "single", home / "whole"};
    EXPECT_EQ(targets("/"), all);
    EXPECT_EQ(targets(home.path()), all);
    EXPECT_EQ(targets(home / "part"), Paths{home / "part/in"});
    EXPECT_EQ(targets(home / "part/out"), Paths());
    rules.paths.exclusions.clear();
    *mounted = {{home / "part", "ext4"}};
    EXPECT_EQ(targets("/"), (Paths{home / "empty", home / "left", home / "single", home / "whole"}));
    rules.volumes = {home / "part/in"};
    EXPECT_EQ(targets("/"), all);
    mounted->clear();
    rules = BackupRules{.home = home.path(), .policy = {}, .paths = {}};
    EXPECT_EQ(targets("/"), Paths{home.path()});
    rules.automaticMode = false;
    EXPECT_EQ(targets("/"), Paths());
    for (const char* added : {"whole", "whole/deep/b", "gone"})
        rules.paths.marks[home / added] = PathRules::Mark::Added;
    rules.paths.marks[home / "whole/deep"] = PathRules::Mark::Removed;
    EXPECT_EQ(targets("/"), (Paths{home / "whole/a", home / "whole/deep/b"}));
    std::filesystem::remove(home / "whole/a");
    EXPECT_EQ(targets("/"), Paths{home / "whole/deep/b"}) << "it would be left out with all of the folder";
}

TEST(BackupTargets, HoldAFolderThatCannotBeReadAndNameIt) {
    const tests::TemporaryFolder home;
    home.write("left/cache/c", "1");
    home.write("part/cache/c", "1");
    const auto rules = std::make_shared<BackupRules>(
        BackupRules{.home = home.path(), .policy = {home / "part/cache/"}, .paths = {}});
    std::filesystem::permissions(home / "left", std::filesystem::perms::none);
    const tests::AsNobody nobody(home);
    const BackupTargets found =
        backupTargets({rules, std::make_shared<MountPoints>()}, "/", std::atomic<bool>(false));
    EXPECT_EQ(found.unread, Paths{home / "left"});
    EXPECT_EQ(std::ranges::count(found.paths, home / "left"), 1);
}

} // namespace
} // namespace kelvane
