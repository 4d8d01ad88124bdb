// Results of a verification of the backup, and the repair.

#include "Tests/LocalDaemon/BackingUpTest.h"

#include "Foundation/Format.h"
#include "Foundation/Unicode.h"
#include "Tests/Harness/EnvironmentVariable.h"

#include <random>

namespace kelvane::tests {
namespace {

// A pack that holds two files is damaged or lost.
class Verifying : public BackingUp {
protected:
    void SetUp() override {
        std::string noise(50000, ' '); // so that their pack is the largest
        std::ranges::generate(
            noise, [random = std::minstd_rand()]() mutable { return static_cast<char>(random()); });
        folders.write("home/here", noise);
        folders.write("home/" + gone, std::string(40000, 'g'));
        start();
        ASSERT_TRUE(comesToRest(2, 90000));
    }
    // Returns where a repair puts the pack.
    [[nodiscard]] std::string damageLargest() const {
        std::vector<fs::path> packs;
        for (const auto& entry : fs::recursive_directory_iterator(data))
            if (entry.is_regular_file())
                packs.push_back(entry.path());
        const fs::path pack =
            std::ranges::max(packs, {}, [](const auto& each) { return fs::file_size(each); });
        fs::permissions(pack, fs::perms::owner_all);
        std::fstream(pack, std::ios::in | std::ios::out | std::ios::binary).seekp(30) << "damage";
        return folders / ("repository/damaged/" + pack.filename().native());
    }
    void verify() {
        EXPECT_EQ(pane->call<"verify">(), "");
        EXPECT_FALSE(pane->state("verificationProgress").isAbsent());
        ASSERT_TRUE(comesTo([&] { return pane->state("verificationProgress").isAbsent(); }));
    }
    [[nodiscard]] bool showsColors(std::int32_t ofHere, std::int32_t ofGone) {
        return comesTo([&] { return colors({in("here"), lost}) == Array{ofHere, ofGone}; });
    }
    // Like a disk that was unplugged, after one of the files was deleted.
    void loseData() {
        fs::remove(in(gone));
        ASSERT_TRUE(showsColors(green, blue));
        fs::rename(data, folders / "away");
        for (unsigned number = 0; number < 256; ++number)
            fs::create_directories(data / formatText("%02x", number));
        verify();
        EXPECT_TRUE(showsColors(green, none)) << pane->state("lastVerification").description();
        EXPECT_TRUE(comesTo([&] { return pane->state("damagedFileCount") == 1U; }));
    }

    const EnvironmentVariable foreign{"RESTIC_KEY_HINT", "0000"}; // for another repository of the user
    const std::string gone = "gone \xFF";
    const Value lost = textFromPath(in(gone));
    const fs::path data = folders / "repository/data";
};

// Found only by reading, while everything in the pack is on the disk as it was saved.
TEST_F(Verifying, RepairsWithoutAQuestionWhatNobodyElseNeeds) {
    std::string aside = damageLargest();
    verify();
    EXPECT_TRUE(comesTo([&] { return fs::exists(aside) && pane->state("isBackupDamaged") == false; }));
    EXPECT_TRUE(showsColors(green, green));

    Restic::Call other; // another program's snapshot
    other.arguments = {"backup", "--tag", "other", in("here")};
    ASSERT_TRUE(repository().restic().run(other, StopSignal()).succeeded());
    aside = damageLargest();
    verify();
    EXPECT_TRUE(showsColors(yellow, yellow));
    EXPECT_TRUE(alertOf("backup_damaged")["actions"].array().empty());
    EXPECT_FALSE(fs::exists(aside));
}

TEST_F(Verifying, SaysWhatIsLostAndTakesInWhatComesBack) {
    loseData();
    EXPECT_EQ(pane->state("isBackupDamaged"), true);
    const auto saysWhatIsLost = [&] {
        return alertOf("backup_damaged")["text"].stringValue().ends_with("cannot be restored:\n" +
                                                                         lost.stringValue());
    };
    EXPECT_TRUE(saysWhatIsLost()) << pane->state("alerts").description();
    start({}, "/bin/false"); // the recorded damage is known before any check
    EXPECT_TRUE(saysWhatIsLost());
    EXPECT_EQ(pane->state("damagedFileCount"), 1U);
    start();
    fs::copy(folders / "away", data, fs::copy_options::recursive | fs::copy_options::skip_existing);
    verify();
    EXPECT_TRUE(showsColors(green, blue));
    EXPECT_EQ(pane->state("isBackupDamaged"), false);
    EXPECT_EQ(failuresOf(lost, folders / "back"), "");
    EXPECT_EQ(folders.read("back"), std::string(40000, 'g'));
}

// Part of the pack may belong to a snapshot that cannot be read.
TEST_F(Verifying, AsksBeforeItStoresAgainWhatAnotherSnapshotMayNeed) {
    loseData();
    const std::string aside = damageLargest();
    verify();
    EXPECT_TRUE(showsColors(yellow, none));
    EXPECT_FALSE(fs::exists(aside));
    EXPECT_EQ(pane->call<"performAlertAction:ofAlert:">("store-again:", "backup_damaged"), "");
    EXPECT_TRUE(showsColors(green, none));
    EXPECT_TRUE(fs::exists(aside));
}

TEST_F(BackingUp, ABackupThatIsAskedForIsDoneWhenItsDataIsThere) {
    folders.write("home/file", "1");
    start({}, folders.program("cd '" + folders.path() + R"('
[ $1 = backup -a -e lose ] || exec restic "$@"
rm lose; find repository/data -type f > before; restic "$@"; status=$?
rm -f $(ls -S $(find repository/data -type f | grep -vxFf before) | head -1); exit $status)"));
    ASSERT_TRUE(comesToRest(1, 1));
    std::string noise(3000, ' '); // so that its pack is the largest
    std::ranges::generate(noise,
                          [random = std::minstd_rand()]() mutable { return static_cast<char>(random()); });
    folders.write("home/file", noise);
    folders.write("lose", "");
    pane->call<"setPriorityBackup:">("/");
    ASSERT_TRUE(comesTo([&] { return pane->state("isBackupNeeded") == false; }));
    EXPECT_EQ(snapshots(), 3U) << "what was lost has been stored again";
    ASSERT_TRUE(comesToRest(1, 3000));
    EXPECT_EQ(pane->state("isBackupDamaged"), false);
    EXPECT_EQ(failuresOf(in("file"), folders / "back"), "");
    EXPECT_EQ(folders.read("back"), noise);
}

TEST_F(BackingUp, ReadsTheDataPartByPartAlsoWithoutAnOrder) {
    folders.write("home/file", "12345");
    adjust = [](LocalDaemon::Options& options) { options.verification = {{}, 2, 2s}; };
    start({}, folders.program("[ $1 = check ] && nice > " + (folders / "priority") +
                              "\nall=$*; [[ $all == *-subset* ]] && echo ${all#*-subset } >> " +
                              (folders / "read") + "\nexec restic \"$@\"\n"));
    ASSERT_TRUE(comesToRest(1, 5));
    EXPECT_TRUE(comesTo([&] { return folders.read("read").starts_with("1/2\n2/2\n1/2\n"); }))
        << folders.read("read");
    for (const auto& entry : fs::recursive_directory_iterator(folders / "repository/data"))
        if (entry.is_regular_file()) {
            fs::permissions(entry, fs::perms::owner_all);
            std::fstream(entry.path(), std::ios::in | std::ios::out | std::ios::binary).seekp(3) << "damage";
        }
    EXPECT_TRUE(comesTo([&] {
        return pane->state("isBackupDamaged") == true || fs::exists(folders / "repository/damaged");
    }));
    EXPECT_FALSE(pane->state("lastVerifiedDate").isAbsent());
    EXPECT_EQ(folders.read("priority"), "19\n");
}

TEST_F(BackingUp, AnOrderedVerificationGoesOnWithThePartThatFailed) {
    folders.write("home/file", "12345");
    const std::string isLost = "[ -e " + (folders / "lost") + " -a $1 = ";
    start({}, folders.program(
                  isLost + "check ] && echo pack " + std::string(64, 'a') +
                  ": does not exist && echo 'Fatal: repository contains errors' && exit 1\n" + isLost +
                  "rebuild-index ] && exit 1\nall=$*; part=${all#*data-subset }; part=${part%% *}\n"
                  "[ $part = 3/8 -a ! -e " +
                  (folders / "failed") + " ] && echo > " + (folders / "failed") +
                  " && exit 1\n[[ $part == */8 ]] && echo $part >> " + (folders / "read") +
                  "\nexec restic \"$@\"\n"));
    ASSERT_TRUE(comesToRest(1, 5));
    const auto says = [&](const std::string& outcome) {
        EXPECT_EQ(pane->call<"verify">(), "");
        return comesTo([&] {
            return pane->state("verificationProgress").isAbsent() &&
                   pane->state("lastVerification").stringValue().find(outcome) != std::string::npos;
        });
    };
    EXPECT_TRUE(says("Not verified"));
    EXPECT_TRUE(says("; everything was read")) << pane->state("lastVerification").description();
    EXPECT_EQ(folders.read("read"), "1/8\n2/8\n3/8\n4/8\n5/8\n6/8\n7/8\n8/8\n");
    folders.write("lost", "");
    EXPECT_TRUE(says("; not everything was read, because the index lists missing packs"));
    EXPECT_EQ(pane->state("isBackupDamaged"), true);
    fs::remove(folders / "lost");
    EXPECT_TRUE(says("; everything was read")) << pane->state("lastVerification").description();
    EXPECT_EQ(pane->state("isBackupDamaged"), false);
}

} // namespace
} // namespace kelvane::tests
