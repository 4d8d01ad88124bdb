#include "LocalDaemon/Backup/VerificationRecord.h"
#include "LocalDaemon/Restic/RepositoryCheck.h"
#include "Support/Logging.h"
#include "Support/Preferences/CheckedFile.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace kelvane {
namespace {

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
          "pack " + std::string(64, 'e') + ": does not exist"})
        takeCheckLine(report, line);
    EXPECT_EQ(report.missingBlobs, std::set<std::string>{std::string(64, 'b')});
    EXPECT_EQ(report.unknownPacks, std::set<std::string>{id});
    EXPECT_EQ(report.damagedPacks, std::set<std::string>{std::string(64, 'd')});
    // A truncated pack counts as missing.
    EXPECT_EQ(report.missingPacks, (std::set<std::string>{std::string(64, 'c'), std::string(64, 'e')}));
    EXPECT_EQ(report.snapshots, std::set<std::string>{"8fad1fa1c7"});
}

TEST(Damage, IsOfASnapshotAndOfAllThatIsInADamagedFolder) {
    Damage damage;
    damage.snapshots = {"bb"};
    damage.paths["aa"] = {"/home/folder", "/home/file"};
    damage = Damage::fromValue(damage.value());
    const struct {
        const char* snapshot;
        const char* path;
        bool isHeld;
    } cases[] = {{"aa", "/home/file", true}, {"aa", "/home/folder/a/b", true}, {"aa", "/home/folder2", false},
                 {"aa", "/home", false},     {"cc", "/home/file", false},      {"bb01", "/anything", true}};
    for (const auto& [snapshot, path, isHeld] : cases)
        EXPECT_EQ(damage.holds(snapshot, path), isHeld) << snapshot << path;
    EXPECT_TRUE(Damage::fromValue(Dictionary{{"snapshots", Array{"", 7}}}).isNone());
}

TEST(VerificationRecord, SaysNothingElseWhereABitIsWrong) {
    const tests::TemporaryFolder folder;
    const LogSinkToken quiet = setLogSink([](const LogEntry&) {});
    VerificationRecord record;
    record.damagedPacks = {"pack"};
    record.save(folder / "record");
    const std::string whole = folder.read("record");
    for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
        std::string flipped = whole;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
        const CheckedReading file = readCheckedFile(folder.write("flipped", flipped), "record", whole.size());
        EXPECT_TRUE(file.value.isAbsent() || file.value["damagedPacks"] == Value(Array{"pack"})) << bit;
    }
    EXPECT_EQ(VerificationRecord::read(folder / "record").damagedPacks, record.damagedPacks);
    folder.write("record", whole.substr(0, whole.size() - 1));
    EXPECT_TRUE(VerificationRecord::read(folder / "record").isLost());
    EXPECT_TRUE(VerificationRecord::read(folder / "record").isLost()) << "still after the next start";
}

} // namespace
} // namespace kelvane
