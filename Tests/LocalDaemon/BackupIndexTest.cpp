#include "LocalDaemon/BackupIndex.h"

#include "LocalDaemon/BackupTargets.h"
#include "LocalDaemon/ResticJson.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>

namespace kelvane {
namespace {

SnapshotItem file(const std::string& path, std::uint64_t size, std::int64_t modified = 1) {
    return {path, ItemKind::File, size, modified, modified, 10, 20};
}
SnapshotItem folder(const std::string& path) {
    return {path, ItemKind::Folder, 0, 1, 1, 10, 20};
}

// Names whose order by bytes is not that of their paths.
const std::vector<SnapshotItem> first{folder("/h"),          file("/h/a b", 1), folder("/h/a"),
                                      file("/h/a/x", 2),     file("/h/a.c", 4), folder("/h/empty"),
                                      file("/other/y", 8, 5)};

std::vector<std::string> pathsIn(const BackupIndex& index) {
    std::vector<std::string> paths;
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
    EXPECT_EQ(index.find("/other")->snapshot, 0U); // only what is in it is known
    for (const char* path : {"/h/b", "/h/a/x/z", "/h/a ", "/z"})
        EXPECT_EQ(index.find(path), nullptr) << path;
}

TEST(BackupIndex, KeepsWhatALaterSnapshotDoesNotHoldAndSinceWhenAFileIsAsItIs) {
    const BackupIndex one = indexWith({}, "repository", {"one", 100, false}, first);
    const BackupIndex two = indexWith(one, "repository", {"two", 200, false},
                                      {folder("/h"), file("/h/a b", 1), file("/h/a.c", 5, 9)});
    const auto itemAt = [&](const char* path) { return *two.find(path); };
    EXPECT_EQ(itemAt("/h/a b").backedUp, 100);
    EXPECT_EQ(itemAt("/h/a b").version, 1U);
    EXPECT_EQ(itemAt("/h/a b").snapshot, 2U);
    EXPECT_EQ(itemAt("/h/a.c").backedUp, 200);
    EXPECT_EQ(itemAt("/h/a.c").version, 2U);
    EXPECT_EQ(two.snapshot(itemAt("/h/a/x").snapshot)->id, "one");

    const BackupIndex kept = indexOfKept(two, {{"two", 200, false}});
    EXPECT_EQ(kept.find("/h/a/x"), nullptr);
    EXPECT_EQ(kept.totals(), (FileTotals{2, 6}));
    EXPECT_EQ(indexWith(kept, "repository", {"three", 300, true}, {}).find("/h/a b")->snapshot, 2U);
}

TEST(BackupIndex, IsTheSameFromItsFileAndRefusesADamagedOne) {
    const BackupIndex index = indexWith({}, "repository", {"one", 100, true}, first);
    std::vector<std::uint8_t> bytes = index.encoded();
    const auto read = BackupIndex::decoded(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(pathsIn(*read), pathsIn(index));
    EXPECT_EQ(read->snapshots(), index.snapshots());
    EXPECT_EQ(read->repositoryId(), "repository");
    EXPECT_EQ(read->totals(), index.totals());
    EXPECT_EQ(read->find("/other/y")->modified, 5);
    EXPECT_EQ(read->encoded(), bytes);
    for (std::size_t at = 0; at < bytes.size(); at += 7) {
        ++bytes[at];
        EXPECT_FALSE(BackupIndex::decoded(bytes)) << at;
        EXPECT_FALSE(BackupIndex::decoded(std::span(bytes).first(at))) << at;
        --bytes[at];
    }
}

TEST(BackupIndex, KnowsANameThatIsNoTextAsResticPrintsIt) {
    EXPECT_EQ(indexedName("plain \xC3\xA4"), "plain \xC3\xA4");
    EXPECT_EQ(indexedName("\xFF\xC3\xA4\xE2\x82"), "\xEF\xBF\xBD\xC3\xA4\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(ResticJson, TakesWhatItKnowsAndNothingElse) {
    EXPECT_EQ(nanosecondsFrom("1970-01-01T01:00:00.5+01:00"), 500'000'000);
    EXPECT_EQ(nanosecondsFrom("1969-12-31T23:59:59.999999999Z"), -1);
    EXPECT_EQ(nanosecondsFrom("2000-02-29T12:00:00-00:30"), 951827400'000'000'000);
    for (const char* wrong : {"", "2001-02-29T12:00:00Z", "2001-02-03T12:00:00", "2001-02-03 12:00:00Z",
                              "9999-02-03T12:00:00Z", "x"})
        EXPECT_FALSE(nanosecondsFrom(wrong)) << wrong;
    const auto item = itemFrom(R"({"type":"symlink","path":"/a\"b","uid":7,"mtime":"1970-01-01T00:00:01Z"})");
    ASSERT_TRUE(item);
    EXPECT_EQ(item->path, "/a\"b");
    EXPECT_EQ(item->kind, ItemKind::Link);
    EXPECT_EQ(item->modified, 1'000'000'000);
    for (const char* wrong :
         {"", "[]", "null", R"({"type":"fifo","path":"/a"})", R"({"type":"file","path":5})"})
        EXPECT_FALSE(itemFrom(wrong)) << wrong;
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
    for (const char* name : {"whole/a", "whole/deep/b", "part/in", "part/out", "part/cache/c", "single"})
        home.write(name, "1");
    std::filesystem::create_directory(home / "empty");
    BackupRules rules{true, home.path(), {home / "part/cache/"}, {}};
    rules.paths.exclusions.insert(home / "part/out");
    const std::atomic<bool> stopping = false;
    const auto targets = [&](const std::string& path) {
        auto found = backupTargets(rules, path, stopping);
        std::ranges::sort(found);
        return found;
    };
    using Paths = std::vector<std::string>;
    const Paths all{home / "empty", home / "part/in", home / "single", home / "whole"};
    EXPECT_EQ(targets("/"), all);
    EXPECT_EQ(targets(home.path()), all);
    EXPECT_EQ(targets(home / "part"), Paths{home / "part/in"});
    EXPECT_EQ(targets(home / "part/out"), Paths());
    rules.paths.exclusions.clear();
    rules.policy.clear();
    EXPECT_EQ(targets("/"), Paths{home.path()});
    rules.automaticMode = false;
    EXPECT_EQ(targets("/"), Paths());
    rules.paths.mark(home / "whole", PathRules::Mark::Added);
    rules.paths.mark(home / "whole/deep", PathRules::Mark::Removed);
    rules.paths.mark(home / "whole/deep/b", PathRules::Mark::Added);
    rules.paths.mark(home / "gone", PathRules::Mark::Added);
    EXPECT_EQ(targets("/"), (Paths{home / "whole/a", home / "whole/deep/b"}));
}

} // namespace
} // namespace kelvane
