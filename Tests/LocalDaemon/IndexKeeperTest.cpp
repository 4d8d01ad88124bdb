// A real repository and the real restic, without a daemon.

#include "LocalDaemon/Index/IndexKeeper.h"
#include "Common/RestoreStatus.h"
#include "LocalDaemon/Index/RetentionAlerts.h"
#include "LocalDaemon/Restic/ResticJson.h"
#include "Support/Logging.h"
#include "Tests/LocalDaemon/RunningDaemon.h"

#include <array>
#include <ctime>
#include <filesystem>
#include <fstream>

namespace kelvane {
namespace {

namespace fs = std::filesystem;

// A repository without a daemon, and the clock for its index.
class Keeping : public ::testing::Test {
protected:
    Keeping() {
        bool isNew = false;
        EXPECT_EQ(ensurePasswordFile(place.passwordFile, isNew), "");
    }
    std::string backUp(const std::string& path, std::int64_t daysAgo,
                       const std::vector<std::string>& tags = {}) {
        const std::time_t time = clock.wall - daysAgo * 86400;
        std::array<char, 32> text{};
        std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", std::localtime(&time));
        Restic::Call call;
        call.arguments = {"backup", "--json", "--force", "--tag", "kelvane-7", "--time", text.data(), path};
        for (const std::string& tag : tags)
            call.arguments.insert(call.arguments.end(), {"--tag", tag});
        std::string id;
        call.onLine = [&id](std::string_view line) {
            id = textEntry(line, "snapshot_id");
            return true;
        };
        EXPECT_TRUE(repository.restic().run(call, stop).succeeded());
        return id;
    }
    IndexKeeper keeper() {
        return {repository, folders / "index", [this] { return clock; }};
    }
    void pass(std::int64_t days) {
        clock.wall += days * 86400;
        clock.sinceBoot += days * 86400;
    }

    [[nodiscard]] std::size_t snapshots() const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(folders / "repository/snapshots"), {}));
    }

    const tests::DaemonFolders folders;
    const LogSinkToken quiet = setLogSink([](const LogEntry&) {});
    const RepositoryPlace place{.location = folders / "repository/",
                                .passwordFile = folders / "state/password",
                                .cacheFolder = folders / "cache"};
    const Repository repository{std::make_shared<const Restic>(place), 7};
    const StopSignal stop;
    ClockReading clock{readMachineClock().wall, 1000, "boot"};
};

TEST_F(Keeping, ForgetsWhatWasReplacedForTooLong) {
    constexpr std::chrono::days keep(30);
    folders.write("repository.kelvane-new/thesis", "a person's");
    folders.write("repository.kelvane-new-12/keys/half", "made by one that was killed");
    folders.write("cache/unfinished-repository", folders / "repository.kelvane-new-12");
    ASSERT_TRUE(repository.open(Repository::Making::Always, stop).wasMade);
    EXPECT_TRUE(fs::exists(folders / "repository.kelvane-new/thesis"));
    EXPECT_FALSE(fs::exists(folders / "repository.kelvane-new-12"));
    backUp(folders.write("old", "1"), 32);
    backUp(folders.write("new", "22"), 0); // after a month without the machine
    const auto forgetAt = [&](std::int64_t days, std::size_t left) {
        pass(days);
        IndexKeeper each = keeper();
        EXPECT_TRUE(each.synchronize(false, stop).succeeded());
        EXPECT_TRUE(each.forgetOld(keep, stop).succeeded());
        EXPECT_EQ(snapshots(), left);
        EXPECT_EQ(each.index()->totals(), (left == 2 ? FileTotals{2, 3} : FileTotals{1, 2}));
        EXPECT_EQ(keeper().index()->totals(), each.index()->totals());
    };
    const auto packs = [&] {
        return std::distance(fs::recursive_directory_iterator(folders / "repository/data"), {});
    };
    forgetAt(0, 2);
    forgetAt(29, 2);
    pass(3);
    {
        IndexKeeper late = keeper();
        ASSERT_TRUE(late.synchronize(false, stop).succeeded());
        const std::string unknown = backUp(folders.write("other", "333"), 0);
        EXPECT_TRUE(late.forgetOld(keep, stop).succeeded());
        EXPECT_EQ(snapshots(), 3U) << "first the index has to be right";
        ASSERT_TRUE(repository.forget({unknown}, stop).succeeded());
    }
    const auto packsBefore = packs();
    forgetAt(0, 1);
    EXPECT_EQ(packs(), packsBefore);
    forgetAt(1, 1);
    EXPECT_LT(packs(), packsBefore) << "pruned a day later";
}

TEST_F(Keeping, FollowsTheOrderOfCreationAndNotTheClock) {
    ASSERT_TRUE(repository.open(Repository::Making::Always, stop).wasMade);
    const std::string file = folders.write("home/file", "ahead");
    backUp(file, -1, {"sequence-3"});
    folders.write("home/file", "newest one");
    const std::string newest = backUp(file, 0, {"sequence-4", "sequence-18446744073709551615"});
    IndexKeeper from = keeper();
    ASSERT_TRUE(from.synchronize(false, stop).succeeded());
    EXPECT_EQ(from.index()->find(file)->size, 10U);
    EXPECT_EQ(from.nextSequenceTag(), "sequence-5");

    std::vector<std::string> raised;
    std::string said;
    std::set<std::string> withdrawn;
    from.setAlerts({[&](const Alert& alert) {
                        raised.push_back(alert.kind);
                        said = alert.body;
                    },
                    [&](const std::string& kind) { withdrawn.insert(kind); }});
    EXPECT_TRUE(from.forgetOld(std::chrono::days(30), stop).succeeded());
    EXPECT_EQ(raised, std::vector<std::string>{aheadAlert});
    EXPECT_TRUE(said.starts_with("Snapshot " + from.index()->inOrderOfCreation()[0].id.substr(0, 8) +
                                 " is dated " + dateText(clock.wall + 86400) + ", which is in the future. "))
        << said;
    pass(2);
    EXPECT_TRUE(from.forgetOld(std::chrono::days(30), stop).succeeded());
    EXPECT_TRUE(withdrawn.contains(aheadAlert));
    pass(-2);
    raised.clear();
    folders.write("home/file", "1970");
    ASSERT_TRUE(from.add({backUp(file, clock.wall / 86400, {from.nextSequenceTag()})}, stop).succeeded());
    EXPECT_EQ(raised, std::vector<std::string>{orderAlert});
    fs::remove(folders / "index");
    IndexKeeper again = keeper();
    ASSERT_TRUE(again.synchronize(false, stop).succeeded());
    EXPECT_EQ(again.index()->find(file)->size, 4U);
    clock.wall += 400 * 86400;
    ASSERT_TRUE(again.forgetOld(std::chrono::days(30), stop).succeeded());
    EXPECT_EQ(snapshots(), 3U) << "the clock was set";
}

// restic reports success even if it skips a snapshot that it cannot load.
TEST_F(Keeping, ASnapshotOutOfSightIsNotGone) {
    ASSERT_TRUE(repository.open(Repository::Making::Always, stop).wasMade);
    backUp(folders.write("gone", "1"), 3);
    const auto file = fs::directory_iterator(folders / "repository/snapshots")->path();
    backUp(folders.write("deletedOnThatDay", "4444"), 1);
    backUp(folders.write("kept", "22"), 1);
    IndexKeeper running = keeper();
    ASSERT_TRUE(running.synchronize(false, stop).succeeded());
    fs::rename(file, folders / "aside");
    fs::remove_all(folders / "cache");
    const auto synchronize = [&](bool isWhole, std::uint64_t count) {
        EXPECT_TRUE(running.synchronize(false, stop).succeeded());
        EXPECT_EQ(running.isCurrent(), isWhole);
        EXPECT_EQ(running.index()->totals().count, count);
    };
    std::ofstream(file) << "damaged";
    synchronize(false, 3);
    backUp(folders.write("new", "333"), 0, {"sequence-1"});
    synchronize(false, 4);
    fs::remove(file); // really deleted
    synchronize(true, 3);
    fs::rename(folders / "aside", file);
    EXPECT_TRUE(running.forgetOld(std::chrono::days(30), stop).succeeded());
    EXPECT_EQ(running.index()->totals().count, 4U) << "after the next backup";
    EXPECT_EQ(running.index()->newestSnapshot()->sequence, 1U);
}

// Another program has removed the newest snapshot that contained a file.
TEST_F(Keeping, OlderSnapshotsBringBackWhatARemovedOneHeld) {
    ASSERT_TRUE(repository.open(Repository::Making::Always, stop).wasMade);
    const std::string file = folders.write("home/file", "12345");
    backUp(file, 3, {"sequence-1"});
    const std::string removed = backUp(file, 2, {"sequence-2"});
    IndexKeeper running = keeper();
    ASSERT_TRUE(running.synchronize(false, stop).succeeded());
    ASSERT_TRUE(repository.forget({removed}, stop).succeeded());
    ASSERT_TRUE(running.synchronize(false, stop).succeeded());
    ASSERT_TRUE(running.index()->find(file));
    EXPECT_EQ(running.index()->snapshot(running.index()->find(file)->snapshot)->sequence, 1U);
}

TEST_F(Keeping, ListingGoesOnWhereItWasCutOffAndLosesNoVersion) {
    ASSERT_TRUE(repository.open(Repository::Making::Always, stop).wasMade);
    const std::string early = folders.write("home/early", "1");
    const std::string file = folders.write("home/file", "1");
    backUp(folders.home(), 2, {"sequence-1"});
    backUp(folders.home(), 2, {"sequence-2"});
    fs::remove(early);
    folders.write("home/file", "22");
    backUp(folders.home(), 1, {"sequence-3"});
    fs::remove(file);
    backUp(folders.home(), 1, {"sequence-4"});
    const std::string listings = folders / "listings";
    RepositoryPlace watched = place;
    watched.program = folders.write(
        "restic", "#!/bin/sh\n[ $1 = ls ] && echo >> " + listings + " && [ $(wc -l < " + listings +
                      ") = 2 ] && echo connection refused >&2 && exit 1\n" + "exec restic \"$@\"\n");
    fs::permissions(watched.program, fs::perms::owner_all);
    const Repository counting(std::make_shared<const Restic>(watched), 7);
    EXPECT_FALSE(IndexKeeper(counting, folders / "index").synchronize(false, stop).succeeded());
    IndexKeeper next(counting, folders / "index");
    ASSERT_TRUE(next.synchronize(false, stop).succeeded());
    EXPECT_LE(fs::file_size(listings),
              5U); // of four, one of which failed; the first two may be the same tree
    for (const auto& [path, size, sequence] : {std::tuple(early, 1U, 2U), std::tuple(file, 2U, 3U)}) {
        const BackupIndex::Item* const item = next.index()->find(path);
        ASSERT_TRUE(item) << path;
        EXPECT_EQ(item->size, size) << path;
        EXPECT_EQ(next.index()->snapshot(item->snapshot)->sequence, sequence) << path;
    }
}

// A script stands for restic. The file "count" has the numbers of the snapshots; "broken" matches those that
// cannot be read, and "many" those with 200 files.
class KeepingQuickly : public Keeping {
protected:
    KeepingQuickly() {
        quick.program = folders.program("cd " + folders.path() + R"(
case "$1 $2" in
'cat config') echo '{"id":"x"}';;
snapshots*) [ -e unlisted ] && exit 1; sep=; echo [; for n in $(cat count); do
    echo "$sep{\"id\":\"id$n\",\"tags\":[\"sequence-$n\"],\"time\":\"2001-01-01T00:00:$n.0Z\"}"; sep=,; done; echo ];;
ls*) echo $4 | grep -qf broken && echo 'damaged $4' >&2 && exit 1
    echo "{\"struct_type\":\"snapshot\",\"id\":\"$4\",\"time\":\"2001-01-01T00:00:${4#id}Z\"}"
    for n in $(echo $4 | grep -qf many && seq 200 || echo 1); do echo "{\"type\":\"file\",\"path\":\"/$n\"}"; done;;
tag*) [ -e refused ] && exit 1; echo $4 > tagged;;
forget*) echo "$*" >> forgotten; sed -i "s/${2#id}//" count;;
esac
)");
        for (const char* name : {"count", "broken", "many"})
            folders.write(name, name == std::string("count") ? "" : "none");
    }
    RepositoryPlace quick = place;
};

TEST_F(KeepingQuickly, SaysHowFarAListingIsAndWhatItLeavesOut) {
    std::string numbers;
    for (int number = 10; number < 31; ++number)
        numbers += std::to_string(number) + ' ';
    folders.write("count", numbers);
    const Repository quickly(std::make_shared<const Restic>(quick), 7);
    std::vector<std::string> said;
    std::set<std::string> withdrawn;
    IndexKeeper running(quickly, folders / "index");
    running.setAlerts({[&](const Alert& alert) { said.push_back(alert.kind + ": " + alert.body); },
                       [&](const std::string& kind) { withdrawn.insert(kind); }});
    folders.write("broken", "id");
    EXPECT_FALSE(running.synchronize(false, stop).succeeded()) << "none can be read";
    said.clear();
    folders.write("broken", "id15");
    EXPECT_TRUE(running.synchronize(false, stop).succeeded());
    EXPECT_FALSE(running.isCurrent());
    EXPECT_EQ(running.index()->snapshots().size(), 20U);
    ASSERT_EQ(said.size(), 2U);
    EXPECT_NE(said[0].find(": 0 of 21 snapshots have been read."), std::string::npos) << said[0];
    EXPECT_TRUE(said[1].starts_with(unreadSnapshotsAlert) && said[1].find("damaged") != std::string::npos)
        << said[1];
    EXPECT_TRUE(withdrawn.contains(restorestatus::listingAlert));
    folders.write("broken", "none");
    EXPECT_TRUE(running.synchronize(false, stop).succeeded());
    EXPECT_TRUE(running.isCurrent());
    EXPECT_EQ(running.index()->snapshots().size(), 21U);
    EXPECT_EQ(said.size(), 2U) << "one snapshot is no long listing";
}

// The record of the decisions may be lost.
TEST_F(KeepingQuickly, AsksAgainBeforeManyFilesThatDisappearedAreForgotten) {
    folders.write("count", "10 11");
    folders.write("many", "id10");
    const Repository quickly(std::make_shared<const Restic>(quick), 7);
    const auto keeps = [&] { return IndexKeeper(quickly, folders / "index", [this] { return clock; }); };
    {
        IndexKeeper first = keeps();
        ASSERT_TRUE(first.synchronize(false, stop).succeeded());
    }
    fs::remove(folders / "index.retention");
    IndexKeeper running = keeps();
    std::vector<std::string> raised;
    running.setAlerts({[&](const Alert& alert) { raised.push_back(alert.kind); }, [](const std::string&) {}});
    ASSERT_TRUE(running.synchronize(false, stop).succeeded());
    pass(50);
    ASSERT_TRUE(running.forgetOld(std::chrono::days(30), stop).succeeded());
    EXPECT_EQ(raised, std::vector<std::string>{"files_disappeared-id11"});
    EXPECT_FALSE(fs::exists(folders / "forgotten"));
    EXPECT_EQ(running.decide("id11", RetentionRecord::Decision::Forget), "");
    pass(1);
    folders.write("unlisted", "");
    EXPECT_FALSE(running.forgetOld(std::chrono::days(30), stop).succeeded());
    EXPECT_FALSE(fs::exists(folders / "forgotten"));
    fs::remove(folders / "unlisted");
    ASSERT_TRUE(running.forgetOld(std::chrono::days(30), stop).succeeded());
    EXPECT_EQ(folders.read("forgotten"), "forget id10\n");
    EXPECT_EQ(running.index()->totals().count, 1U);
}

TEST_F(KeepingQuickly, MarksAnIncompleteSnapshotAsSoonAsItCan) {
    const Repository quickly(std::make_shared<const Restic>(quick), 7);
    IndexKeeper running(quickly, folders / "index");
    ASSERT_TRUE(running.synchronize(false, stop).succeeded());
    EXPECT_EQ(running.nextSequenceTag(), "sequence-1");
    folders.write("count", "1");
    folders.write("refused", "");
    ASSERT_TRUE(running.synchronize(false, stop).succeeded());
    EXPECT_EQ(running.index()->newestCompleteSnapshot(), nullptr);
    fs::remove(folders / "refused");
    ASSERT_TRUE(running.synchronize(false, stop).succeeded());
    EXPECT_EQ(folders.read("tagged"), "id1\n");
}

// The daemon may be killed at any moment during a backup.
TEST_F(Keeping, CountsASnapshotAsIncompleteUntilItIsKnownNotToBe) {
    ASSERT_TRUE(repository.open(Repository::Making::Always, stop).wasMade);
    const std::string file = folders.write("home/file", "1");
    IndexKeeper killed = keeper();
    ASSERT_TRUE(killed.synchronize(false, stop).succeeded());
    backUp(file, 0, {killed.nextSequenceTag()});
    IndexKeeper next = keeper();
    ASSERT_TRUE(next.synchronize(false, stop).succeeded());
    ASSERT_NE(next.index()->newestSnapshot(), nullptr);
    EXPECT_EQ(next.index()->newestCompleteSnapshot(), nullptr);
    ASSERT_TRUE(next.add({backUp(file, 0, {next.nextSequenceTag()})}, stop).succeeded());
    StopSignal stopped;
    stopped.set();
    EXPECT_FALSE(next.add({backUp(file, 0, {next.nextSequenceTag()}), true}, stopped).succeeded());
    fs::remove(folders / "index");
    IndexKeeper last = keeper();
    ASSERT_TRUE(last.synchronize(false, stop).succeeded());
    EXPECT_EQ(last.index()->newestSnapshot()->sequence, 3U);
    EXPECT_EQ(last.index()->newestCompleteSnapshot()->sequence, 2U);
}

// A user may give a snapshot any tag.
TEST_F(Keeping, NoTagMakesItsOwnSnapshotsTheOldest) {
    ASSERT_TRUE(repository.open(Repository::Making::Always, stop).wasMade);
    const std::string file = folders.write("home/file", "1");
    backUp(file, 3, {"sequence-1099511627776"});
    std::string last;
    for (const int daysAgo : {2, 1}) {
        fs::remove(folders / "index");
        IndexKeeper running = keeper();
        ASSERT_TRUE(running.synchronize(false, stop).succeeded());
        last = backUp(file, daysAgo, {running.nextSequenceTag()});
        ASSERT_TRUE(running.add({last}, stop).succeeded());
        EXPECT_TRUE(running.index()->newestSnapshot()->id.starts_with(last));
    }
    EXPECT_TRUE(repository.snapshots(stop).snapshots.back().id.starts_with(last));
}

TEST_F(Keeping, WhatIsKnownOfARepositoryWaitsWhileAnotherHasItsPlace) {
    ASSERT_TRUE(repository.open(Repository::Making::Always, stop).wasMade);
    const std::string file = folders.write("home/file", "1");
    IndexKeeper running = keeper();
    ASSERT_TRUE(running.synchronize(false, stop).succeeded());
    IndexKeeper::Made made{backUp(file, 0, {"sequence-1"}), true};
    made.lacks = {file};
    ASSERT_TRUE(running.add(made, stop).succeeded());
    fs::rename(folders / "repository", folders / "first");
    ASSERT_TRUE(repository.open(Repository::Making::Always, stop).wasMade);
    backUp(file, 0);
    std::string changedTo;
    running.setRepositoryChanged([&](const std::string& id) { changedTo = id; });
    ASSERT_TRUE(running.synchronize(false, stop).succeeded());
    EXPECT_EQ(running.index()->repositoryId(), changedTo);
    EXPECT_TRUE(running.index()->newestCompleteSnapshot());
    fs::remove_all(folders / "repository");
    fs::rename(folders / "first", folders / "repository");
    ASSERT_TRUE(running.synchronize(false, stop).succeeded());
    EXPECT_EQ(running.index()->newestSnapshot()->lacks, std::vector<std::string>{file});
    EXPECT_FALSE(running.index()->newestCompleteSnapshot());
}

TEST_F(Keeping, WhatIsDamagedStaysSoInTheNextSnapshot) {
    ASSERT_TRUE(repository.open(Repository::Making::Always, stop).wasMade);
    const std::string same = folders.write("home/same", "1");
    const std::string changed = folders.write("home/changed", "1");
    backUp(folders.home(), 0, {"sequence-1"});
    IndexKeeper running = keeper();
    ASSERT_TRUE(running.synchronize(false, stop).succeeded());
    Damage damage;
    damage.paths[running.index()->newestSnapshot()->id] = {same, changed};
    running.setDamage(damage);
    folders.write("home/changed", "22");
    ASSERT_TRUE(running.add({backUp(folders.home(), 0, {running.nextSequenceTag()})}, stop).succeeded());
    EXPECT_TRUE(running.index()->isDamaged(*running.index()->find(same)));
    EXPECT_TRUE(running.index()->isDamaged(*running.index()->find(changed))) << "until that is known";
}

} // namespace
} // namespace kelvane
