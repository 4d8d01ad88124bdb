#include "LocalDaemon/Backup/DamageReport.h"
#include "LocalDaemon/Backup/VerificationRecord.h"
#include "LocalDaemon/Restic/RepositoryCheck.h"
#include "Support/Logging.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace kelvane {

namespace fs = std::filesystem;

TEST(CheckReport, TakesResticsReportApart) {
    const std::string id(64, 'a');
    CheckReport report;
    for (const std::string& line :
         {"pack " + id + ": not referenced in any index",
          "  tree " + id + ": file \"x blob " + id + " \" blob " + std::string(64, 'b') +
              " not found in index",
          "pack " + std::string(64, 'c') + ": unexpected file size: got 1, expected 2",
          "Pack ID does not match, want " + std::string(64, 'd') + ", got " + id,
          std::string("error: load <snapshot/8fad1fa1c7>: invalid data returned"),
          "pack " + id + " contained in several indexes: {43418a85 9c41f311}",
          "pack " + std::string(64, 'e') + ": does not exist",
          "pack " + std::string(64, 'f') + ": ciphertext verification failed",
          std::string("  tree is not found in index")})
        takeCheckLine(report, line);
    EXPECT_FALSE(report.isIndexDamaged);
    takeCheckLine(report, "error: error loading index 8fad1fa1: invalid data returned");
    EXPECT_TRUE(report.isIndexDamaged);
    EXPECT_EQ(report.missingBlobs, std::set<std::string>{std::string(64, 'b')});
    EXPECT_EQ(report.unknownPacks, std::set<std::string>{id});
    EXPECT_EQ(report.damagedPacks, (std::set<std::string>{std::string(64, 'd'), std::string(64, 'f')}));
    // A truncated pack counts as missing.
    EXPECT_EQ(report.missingPacks, (std::set<std::string>{std::string(64, 'c'), std::string(64, 'e')}));
    EXPECT_EQ(report.snapshots, std::set<std::string>{"8fad1fa1c7"});
}

// A script stands for restic.
TEST(RepositoryCheck, WithoutAnAnswerItTakesTheWorstAndMovesNothing) {
    const tests::TemporaryFolder folder;
    const LogSinkToken quiet = setLogSink([](const LogEntry&) {});
    const StopSignal stop;
    RepositoryPlace place;
    place.location = folder / "repository";
    place.program = folder / "restic";
    const Repository repository(std::make_shared<const Restic>(place), 7);
    const RepositoryCheck check(repository);
    const auto finds = [&](const std::string& commands) {
        folder.write("restic", "#!/bin/sh\ncase $1 in\nsnapshots) " + commands + "\nesac\n");
        fs::permissions(place.program, fs::perms::owner_all);
    };
    const std::string own(64, '1');
    const std::string snapshots = "echo '[{\"id\":\"" + own + "\"}]';;\nfind) ";
    const std::string one(64, 'a');
    const std::string two(64, 'b');
    CheckReport report;
    report.damagedPacks = {one, two};
    const auto located = [&] { return check.locate(report, RepositoryCheck::Snapshots::Own, stop); };
    for (const char* const answer : {"echo broken >&2; exit 1;;", "echo nonsense;;", "true;;"}) {
        finds(snapshots + answer);
        EXPECT_TRUE(located().outcome.succeeded()) << answer;
        EXPECT_TRUE(located().damage.isEverything) << answer;
        EXPECT_EQ(check.neededByOthers({one, two}, stop).ids, report.damagedPacks) << answer;
    }
    EXPECT_TRUE(check.neededByOthers({}, stop).ids.empty());
    finds(snapshots + "echo '[{\"snapshot\":\"" + own + "\",\"path\":\"/a\"}]';;");
    EXPECT_TRUE(located().damage.holds(own, "/a"));
    EXPECT_EQ(check.neededByOthers({one, two}, stop).ids, std::set<std::string>());
    finds(snapshots + "case $* in *" + two +
          "*) echo '[{\"snapshot\":\"other\",\"path\":\"/a\"}]';; *) echo '[]';; esac;;");
    EXPECT_EQ(check.neededByOthers({one, two}, stop).ids, std::set<std::string>{two});
    // A snapshot that cannot be read, and then no list of the others.
    finds("exit 1;;\nfind) echo ' ... which belongs to snapshot " + own + "'; echo '[]';;");
    EXPECT_FALSE(located().outcome.succeeded());
    report.isIndexDamaged = true;
    EXPECT_TRUE(located().outcome.succeeded() && located().damage.isEverything);

    folder.write("repository/data/aa/" + one, "1");
    folder.write("config", "of somebody else");
    EXPECT_EQ(check.setAside({two, "../config"}), "");
    EXPECT_TRUE(fs::exists(folder / "config"));
    folder.write("repository/data/bb/" + two, "2");
    fs::remove(folder / "repository/damaged");
    folder.write("repository/damaged", "no folder");
    EXPECT_EQ(check.setAside({two}), folder / "repository/data/bb" + '/' + two + ": Not a directory");
    fs::remove(folder / "repository/damaged");
    EXPECT_EQ(check.setAside({one}), "");
    EXPECT_EQ(folder.read("repository/damaged/" + one), "1");
    EXPECT_TRUE(fs::exists(folder / "repository/data/bb" + '/' + two));
}

// One file is damaged as it was saved first, another as it is now.
TEST(DamageReport, NamesEarlierVersionsAndPacksWhereNoFileIsKnown) {
    SnapshotItem file{.path = "/f", .size = 1};
    const BackupIndex one = indexWith({}, "r", {"one", 1}, {file});
    file.size = 2;
    const BackupIndex two = indexWith(one, "r", {"two", 2}, {file});
    VerificationRecord record;
    record.damage.paths["one"] = {"/f"};
    const auto report = [&] {
        return DamageReport(two.withDamage(std::make_shared<const Damage>(record.damage)), record.damage);
    };
    EXPECT_EQ(report().outcome(record), "Earlier versions of 1 file are damaged");
    EXPECT_EQ(report().alert(record, true).body, "Earlier versions of 1 file cannot be restored.");
    record.damage.paths["one"] = {"/usr"};
    EXPECT_FALSE(areOnDisk(record.damage, two)) << "it is not in the backup";
    record.damage = {};
    record.damagedPacks = {"a", "b"};
    EXPECT_EQ(report().alert(record, true).body, "2 pack files are damaged.");
}

TEST(Damage, IsOfASnapshotAndOfAllThatIsInADamagedFolder) {
    Damage damage;
    damage.snapshots = {"bb"};
    damage.paths["aa"] = {"/home/folder", "/home/file"};
    damage = Damage::fromValue(damage.value());
    const std::tuple<const char*, const char*, bool> cases[] = {
        {"aa", "/home/file", true}, {"aa", "/home/folder/a/b", true}, {"aa", "/home/folder2", false},
        {"aa", "/home", false},     {"cc", "/home/file", false},      {"bb01", "/anything", true}};
    for (const auto& [snapshot, path, isHeld] : cases)
        EXPECT_EQ(damage.holds(snapshot, path), isHeld) << snapshot << path;
    EXPECT_TRUE(Damage::fromValue(Dictionary{{"snapshots", Array{"", 7}}}).isNone());
}

TEST(VerificationRecord, IsLostWhenItIsDamagedAlsoAfterTheNextStart) {
    const tests::TemporaryFolder folder;
    const LogSinkToken quiet = setLogSink([](const LogEntry&) {});
    VerificationRecord record;
    record.damagedPacks = {"pack"};
    record.save(folder / "record");
    EXPECT_EQ(VerificationRecord::read(folder / "record").damagedPacks, record.damagedPacks);
    const std::string whole = folder.read("record");
    folder.write("record", whole.substr(0, whole.size() - 1));
    for (int start = 0; start < 2; ++start)
        EXPECT_TRUE(VerificationRecord::read(folder / "record").isLost()) << start;
}

} // namespace kelvane
