// Real folders, a real repository and the real restic.

#include "Common/FileNodeFlags.h"
#include "Common/RestoreStatus.h"
#include "Foundation/Unicode.h"
#include "LocalDaemon/ResticJson.h"
#include "LocalDaemon/ResticProcesses.h"
#include "LocalDaemon/RetentionAlerts.h"
#include "Support/Logging.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/LocalDaemon/RunningDaemon.h"

#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <unistd.h>

namespace kelvane {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using tests::RunningDaemon;
using tests::TestPane;

class BackingUp : public ::testing::Test {
protected:
    [[nodiscard]] std::string in(const std::string& name) const { return folders.home() + '/' + name; }
    void start(const std::vector<Volume>& disks = {}, const std::string& program = "restic") {
        pane.reset();
        daemon.reset();
        daemon = std::make_unique<RunningDaemon>(folders, [&](LocalDaemon::Options& options) {
            options.backup.quiet = 50ms;
            options.backup.firstRetry = 100ms;
            options.fileSystem = std::make_shared<LocalFileSystem>(
                Volumes("Boot", areDisksAway ? std::vector<Volume>() : disks));
            if (!disks.empty())
                options.settled.set("volumes", Array{disks.front().mountPoint});
            options.defaults.repository.program = program;
            options.settled.set("computerNumber", 7U);
            options.settled.set("policyExcludeList", Array{in("odd [x]/left out/"), in(".cache/")});
            if (clock.wall != 0)
                options.machineClock = [this] { return clock; };
        });
        pane = std::make_unique<TestPane>(folders.socket());
    }
    template <class Condition>
    [[nodiscard]] bool comesTo(Condition condition) {
        return pane->waitFor(condition, 60s); // restic takes its time
    }
    // Files and bytes in the backup, and nothing waiting.
    [[nodiscard]] bool comesToRest(int files, int bytes) {
        return comesTo([&] {
            const Value state = pane->call<"daemonState">();
            return state["serviceState"] == 8 && state["pendingFileCount"] == 0 &&
                   state["backedUpFileCount"] == files && state["backedupFileSize"] == bytes;
        });
    }
    [[nodiscard]] Array colors(const Array& paths) {
        return pane->call<"backupColorsForFiles:">(Value(paths)).array();
    }
    [[nodiscard]] std::size_t snapshots() const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(folders / "repository/snapshots"), {}));
    }

    [[nodiscard]] std::string failuresOf(const Value& source, const std::string& target) {
        const auto job = pane->call<"restoreFile:toPath:version:priority:">(source, target, 0U, 50U);
        EXPECT_TRUE(
            comesTo([&] { return restorestatus::hasEnded(pane->call<"getRestoreJobStatus:">(job)); }));
        return pane->call<"stringValueForProfileKey:">(restorestatus::failuresKey(job)).stringValue();
    }

    const tests::DaemonFolders folders;
    bool areDisksAway = false;
    ClockReading clock; // the machine's own as long as it shows nothing
    const LogSinkToken quiet = setLogSink([](const LogEntry&) {});
    std::unique_ptr<RunningDaemon> daemon;
    std::unique_ptr<TestPane> pane;
};

constexpr std::int32_t none = Backup_Color_None, green = Backup_Color_Green, yellow = Backup_Color_Yellow,
                       gray = Backup_Color_Gray, blue = Backup_Color_Blue;

TEST_F(BackingUp, FollowsTheFilesTheRulesAndTheModes) {
    for (const char* name : {"home/a/x [y]*?.txt", "home/a/b/file", "home/.cache/c", "home/bad \xFF"})
        folders.write(name, "12345");
    fs::create_directory(in("empty"));
    fs::create_symlink("a", in("link"));
    start();
    ASSERT_TRUE(comesToRest(3, 15));
    EXPECT_EQ(colors({folders.home(), in("a"), in("a/x [y]*?.txt"), in("empty"), in("link"), in(".cache")}),
              (Array{green, green, green, green, green, none}));
    EXPECT_EQ(fs::status(folders / "state/password").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);

    // Paused, so that what waits is to be seen.
    pane->call<"setPausedMinutes:">(5U);
    folders.write("home/a/x [y]*?.txt", "1234567");
    folders.write("home/new", "1");
    fs::remove(in("a/b/file"));
    ASSERT_TRUE(comesTo([&] { return pane->state("pendingFileSize") == 8; }));
    EXPECT_EQ(colors({folders.home(), in("a"), in("a/x [y]*?.txt"), in("new"), in("link"), in("a/b/file")}),
              (Array{gray, yellow, yellow, yellow, green, blue}));
    pane->call<"setRecoverMode:">(true);
    pane->call<"setPausedMinutes:">(0U);
    pane->call<"setPriorityBackup:">("/");
    EXPECT_EQ(pane->state("serviceState"), 25);
    EXPECT_EQ(snapshots(), 1U);
    pane->call<"setRecoverMode:">(false);
    ASSERT_TRUE(comesToRest(4, 18)); // with the one that has gone
    EXPECT_EQ(snapshots(), 2U);
    EXPECT_TRUE(pane->hears("file /Volumes/"));

    EXPECT_EQ(pane->call<"excludeFileFromBackup:">(in("a")), 0U);
    EXPECT_EQ(colors({in("a"), in("a/x [y]*?.txt"), in("new")}), (Array{blue, blue, green}));
    const Value kept = pane->call<"dictionaryForPath:">(in("a/b/file"));
    EXPECT_EQ(kept["backupFlags"].uint32Value() & Backup_Missing, Backup_Missing);
    EXPECT_EQ(kept["version"], 1);

    // What is excluded is to leave the backup, which only a snapshot without it says.
    ASSERT_TRUE(comesTo([&] { return pane->state("serviceState") == 5; }));
    pane->call<"setPriorityBackup:">("/");
    ASSERT_TRUE(comesToRest(4, 18));
    EXPECT_EQ(snapshots(), 3U);

    start(); // the index is there before restic is asked
    EXPECT_EQ(colors({in("a/b/file")}), Array{blue});
    ASSERT_TRUE(comesToRest(4, 18));
    EXPECT_EQ(colors({in("new"), in("a/b/file")}), (Array{green, blue}));
}

// In restic's JSON each of these has a twin; one of them is even on the disk as its twin is in JSON.
TEST_F(BackingUp, KeepsNamesByteForByte) {
    const std::string lost = "\xEF\xBF\xBD";
    const std::vector<std::string> names{"d\xFF/in", "d\xFE/in", "f\xFF", "f\xFE", "f" + lost, lost + "E9"};
    for (const std::string& name : names)
        folders.write("home/" + name, name);
    folders.write("home/odd [x]/left out/file", "");
    fs::permissions(in("odd [x]"), fs::perms::owner_all);
    start();
    ASSERT_TRUE(comesToRest(6, 23));
    Array texts;
    for (const std::string& name : names)
        texts.emplace_back(textFromPath(in(name)));
    EXPECT_EQ(colors(texts), Array(names.size(), green));
    const Value children = pane->call<"childrenDictionariesForPath:">(folders.home());
    Array listed;
    for (const Value& node : children.array())
        listed.push_back(node["fileName"]);
    EXPECT_EQ(listed, (Array{"d" + lost + "FE", "d" + lost + "FF", "f" + lost, "f" + lost + "FE",
                             "f" + lost + "FF", "odd [x]", lost + "EF" + lost + "BF" + lost + "BDE9"}));

    EXPECT_EQ(pane->call<"excludeFileFromBackup:">(texts[2]), 0U);
    start(); // the index comes from its file, and the rule from the settings
    EXPECT_EQ(colors(texts), (Array{green, green, blue, green, green, green}));
    fs::remove_all(folders.home());
    EXPECT_EQ(failuresOf(folders.home(), folders.home()), "");
    for (const std::string& name : names)
        EXPECT_EQ(folders.read("home/" + name), name);
    EXPECT_EQ(fs::status(in("odd [x]")).permissions(), fs::perms::owner_all);
    EXPECT_TRUE(fs::is_empty(in("odd [x]")));
    fs::create_directories(folders / "out/in the way");
    EXPECT_EQ(failuresOf(texts[3], folders / "out"),
              texts[3].stringValue() + ": a folder stands in its place\n");
}

TEST_F(BackingUp, SaysOfWhichLinksResticLosesTheTargets) {
    const std::string unsure = ": its target was perhaps not UTF-8 text, which restic does not keep\n";
    fs::create_symlink("\xEF\xBF\xBD", in("kept"));
    fs::create_symlink("\xFF", in("lost"));
    start();
    ASSERT_TRUE(comesTo([&] {
        return colors({in("kept"), in("lost")}) == Array{green, yellow} &&
               pane->state("alerts").description().find(in("lost") + ": the target") != std::string::npos;
    })) << pane->state("alerts").description();
    EXPECT_EQ(failuresOf(folders.home(), folders / "out"), in("lost") + unsure);
    EXPECT_EQ(fs::read_symlink(folders / "out/kept"), "\xEF\xBF\xBD");
    EXPECT_FALSE(fs::exists(fs::symlink_status(folders / "out/lost")));
    fs::remove(in("kept"));
    EXPECT_EQ(failuresOf(in("kept"), in("kept")), in("kept") + unsure);
}

TEST_F(BackingUp, ComesBackFromALostRepositoryIndexAndKey) {
    folders.write("home/file", "12345");
    start();
    ASSERT_TRUE(comesToRest(1, 5));
    fs::rename(folders / "repository", folders / "away");
    folders.write("home/file", "123456");
    pane->call<"setPriorityBackup:">("/");
    EXPECT_TRUE(comesTo([&] { return pane->state("serviceState") == 19; }));
    EXPECT_FALSE(fs::exists(folders / "repository")); // another one would hide the loss
    fs::rename(folders / "away", folders / "repository");
    EXPECT_TRUE(comesToRest(1, 6));

    pane.reset();
    daemon.reset();
    for (const auto& file : fs::directory_iterator(folders / "state"))
        if (file.path().filename().string().starts_with("index"))
            std::ofstream(file.path()) << "nonsense";
    fs::remove(in("file"));
    start();
    EXPECT_TRUE(comesToRest(1, 6)); // of what the repository holds
    EXPECT_EQ(colors({in("file")}), Array{blue});

    folders.write("state/password", "another");
    folders.write("home/more", "1");
    pane->call<"setPriorityBackup:">(in("more"));
    EXPECT_TRUE(comesTo([&] { return pane->state("serviceState") == 15; }));
}

TEST_F(BackingUp, WhatIsOnADiskThatIsAwayDoesNotCountAsDeleted) {
    const std::string disk = folders / "media/Disk";
    folders.write("media/Disk/file", "12345");
    folders.write("home/own", "1");
    start({{"Disk", disk}});
    ASSERT_TRUE(comesToRest(2, 6));
    fs::remove(disk + "/file"); // the empty mount point stays
    areDisksAway = true;
    start({{"Disk", disk}});
    folders.write("home/own", "123");
    ASSERT_TRUE(comesTo([&] { return pane->state("serviceState") == 5; }));
    pane->call<"setPriorityBackup:">("/");
    ASSERT_TRUE(comesToRest(2, 8));
    EXPECT_EQ(snapshots(), 2U);

    const auto restic = std::make_shared<Restic>(
        RepositoryPlace{folders / "repository", folders / "state/password", folders / "cache", {}, "restic"});
    const auto made = Repository(restic, 7).snapshots(StopSignal()).snapshots;
    ASSERT_EQ(made.size(), 2U);
    EXPECT_FALSE(made[0].isPartial);
    EXPECT_TRUE(made[1].isPartial) << "so that it does not replace the one that holds the disk";
    for (const SnapshotItem& item : Repository(restic, 7).list(made[1].id, StopSignal()).items)
        EXPECT_FALSE(item.path.starts_with(disk)) << "an empty mount point is no folder of the disk";
}

// As after a kill between a backup and its listing.
TEST_F(BackingUp, RestoresFromTheRepositoryAndNotFromAnOlderIndex) {
    const auto indexPath = [&] {
        for (const auto& file : fs::directory_iterator(folders / "state"))
            if (file.path().filename().string().starts_with("index"))
                return file.path();
        return fs::path();
    };
    folders.write("home/file", "1");
    start();
    ASSERT_TRUE(comesToRest(1, 1));
    fs::copy_file(indexPath(), folders / "older");
    folders.write("home/file", "22");
    folders.write("home/new", "3");
    pane->call<"setPriorityBackup:">("/");
    ASSERT_TRUE(comesToRest(2, 3));
    pane->call<"setPausedMinutes:">(5U);
    pane.reset();
    daemon.reset();
    fs::copy_file(folders / "older", indexPath(), fs::copy_options::overwrite_existing);
    fs::remove_all(folders.home());
    fs::create_directory(folders.home());
    start();
    for (const char* name : {"file", "new"}) {
        const auto job = pane->call<"restoreFile:toPath:version:priority:">(in(name), in(name), 0U, 50U);
        EXPECT_TRUE(
            comesTo([&] { return restorestatus::hasEnded(pane->call<"getRestoreJobStatus:">(job)); }));
    }
    EXPECT_EQ(folders.read("home/file"), "22");
    EXPECT_EQ(folders.read("home/new"), "3");
}

TEST_F(BackingUp, ShowsAndRestoresWhatWasOnADiskThatIsAway) {
    const std::string file = folders.write("media/Disk/file", "12345");
    folders.write("home/own", "1");
    start({{"Disk", folders / "media/Disk"}, {"Empty", folders / "media/Empty"}});
    ASSERT_TRUE(comesToRest(2, 6));
    fs::remove_all(folders / "media/Disk");
    start();
    ASSERT_TRUE(comesToRest(2, 6));
    const Array volumes = pane->call<"childrenDictionariesForPath:">("").array();
    ASSERT_EQ(volumes.size(), 2U); // and none for what has nothing in the backup
    EXPECT_EQ(volumes[1]["fileName"], "/Volumes/Disk");
    const Array children = pane->call<"childrenDictionariesForPath:">("/Volumes/Disk").array();
    ASSERT_EQ(children.size(), 1U);
    EXPECT_EQ(children[0]["path"], "/Volumes/Disk/file");
    EXPECT_NE(pane->call<"restoreFile:toPath:version:priority:">("/Volumes/Disk/file", in("back"), 0U, 0U),
              0U);
    EXPECT_TRUE(comesTo([&] { return fs::exists(in("back")) && fs::file_size(in("back")) == 5; }));
    // What is put where it will be mounted would be hidden then.
    const std::uint32_t job =
        pane->call<"restoreFile:toPath:version:priority:">("/Volumes/Disk/file", file, 0U, 0U);
    EXPECT_TRUE(comesTo(
        [&] { return pane->call<"getRestoreJobStatus:">(job) == std::uint32_t{restorestatus::incomplete}; }));
    EXPECT_FALSE(fs::exists(file));
}

// What restic locks for hours makes room for a restore at once.
TEST_F(BackingUp, PruningMakesRoomForARestore) {
    clock = {readMachineClock().wall, 1000, "boot"};
    folders.write("home/file", "22");
    start();
    ASSERT_TRUE(comesToRest(1, 2));
    daemon.reset();
    for (const auto& each : fs::directory_iterator(folders / "state"))
        if (each.path().extension() == ".retention")
            RetentionRecord(each.path(), [this] { return clock; }).noteForgotten();
    clock.wall += 86400;
    clock.sinceBoot += 86400;
    folders.write("home/file", "333");
    const std::string lock = folders / "pruning";
    start({}, folders.program("case $1 in\nprune) trap 'rm " + lock + "; exit 130' INT; touch " + lock +
                              "; sleep 600 & wait;;\nrestore) if [ -e " + lock +
                              " ]; then echo 'repository is already locked' >&2; exit 1; fi;;\nesac\n" +
                              "exec restic \"$@\""));
    pane->call<"setPriorityBackup:">("/");
    ASSERT_TRUE(comesTo([&] { return fs::exists(lock); }));
    const auto job =
        pane->call<"restoreFile:toPath:version:priority:">(in("file"), folders / "back", 0U, 50U);
    EXPECT_TRUE(comesTo([&] { return pane->call<"getRestoreJobStatus:">(job) == restorestatus::finished; }));
    EXPECT_EQ(folders.read("back"), "333");
}

TEST_F(BackingUp, AsksBeforeManyFilesThatDisappearedAreForgotten) {
    for (int number = 0; number < 120; ++number)
        folders.write("home/photos/" + std::to_string(number), "1");
    start();
    ASSERT_TRUE(comesToRest(120, 120));
    fs::remove_all(in("photos"));
    folders.write("home/other", "1");
    const auto alert = [&] {
        const Value state = pane->call<"daemonState">();
        for (const Value& each : state["alerts"].array())
            if (each["id"].stringValue().starts_with("files_disappeared"))
                return each;
        return Value();
    };
    pane->call<"setPriorityBackup:">("/");
    ASSERT_TRUE(comesTo([&] { return alert()["severity"] == "warning"; }));
    const auto act = [&](std::size_t number) {
        const Value found = alert();
        return pane->call<"performAlertAction:ofAlert:">(found["actions"].array().at(number), found["id"]);
    };
    EXPECT_EQ(alert()["actions"].array().size(), 2U);
    EXPECT_EQ(act(0), "");
    EXPECT_EQ(alert()["severity"], "information");
    start();
    EXPECT_EQ(alert()["severity"], "information") << "the decision stands";
    EXPECT_EQ(act(0), "");
    EXPECT_EQ(alert(), Value());
    start();
    EXPECT_EQ(alert(), Value());
}

// An index that takes half an answer for a whole one forgets what is backed up.
TEST_F(BackingUp, TakesAnAnswerHoweverLongItIsAndNoneForNone) {
    RepositoryPlace place;
    place.program = folders / "restic";
    const Repository repository(std::make_shared<const Restic>(place), 7);
    const auto answer = [&](const std::string& text) {
        folders.program("cat '" + folders.write("answer", text) + "'\n");
    };
    const auto lists = [&] { return repository.list("one", StopSignal()).outcome.succeeded(); };
    const std::string snapshot =
        R"({"struct_type":"snapshot","id":"one","time":"1970-01-01T00:00:01Z","paths":[")" +
        std::string(std::size_t{1} << 22U, 'p') + R"("]})";
    answer('[' + snapshot + "]\n");
    const Repository::Listing listing = repository.snapshots(StopSignal());
    EXPECT_TRUE(listing.outcome.succeeded());
    EXPECT_EQ(listing.snapshots, (std::vector<Snapshot>{{"one", 1, false}}));
    EXPECT_FALSE(lists());
    answer(snapshot + "\n");
    EXPECT_TRUE(lists());
    EXPECT_FALSE(repository.snapshots(StopSignal()).outcome.succeeded());
    answer("");
    EXPECT_FALSE(lists());
    EXPECT_FALSE(repository.snapshots(StopSignal()).outcome.succeeded());
    EXPECT_FALSE(repository.open(Repository::Making::Never, StopSignal()).outcome.succeeded());
}

// In a folder a lock is removed by itself. Elsewhere restic does it, which would also take locks of living
// processes that it cannot see.
TEST_F(BackingUp, RemovesOnlyLocksWhoseHolderIsDead) {
    ChildProgram child;
    child.arguments = {"true"};
    pid_t dead = 0;
    const auto processes = std::make_shared<ResticProcesses>(folders / "state/processes");
    child.onStart = [&](pid_t id) {
        dead = id;
        processes->noteStarted(id);
    };
    ASSERT_TRUE(run(child, StopSignal()).succeeded());
    const auto lockOf = [](int pid, const std::string& time, const std::string& host) {
        return R"({"hostname":")" + host + R"(","pid":)" + std::to_string(pid) + R"(,"time":")" + time +
               R"("})";
    };
    const std::time_t now = std::time(nullptr);
    std::array<char, 32> recent{};
    std::strftime(recent.data(), recent.size(), "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&now));
    const std::string own = lockOf(dead, recent.data(), machineHostName());
    const std::string hidden = lockOf(99999999, recent.data(), machineHostName());
    const std::string other = lockOf(99999999, recent.data(), "other");
    const struct {
        std::vector<std::string> locks;
        bool isOwnRemoved;  // in a folder
        bool isResticAsked; // elsewhere
    } cases[] = {
        {{}, false, false},       {{own}, true, true},          {{own, other}, true, true},
        {{hidden}, false, false}, {{own, hidden}, true, false}, {{own, "gone"}, true, false},
    };
    for (const auto& [locks, isOwnRemoved, isResticAsked] : cases) {
        std::string script = "case \"$1 $3\" in\n'cat --no-lock') echo '{\"id\":\"x\"}';;\nsnapshots*) echo "
                             "[];;\n";
        std::string ids;
        for (std::size_t id = 0; id < locks.size(); ++id) {
            ids += "echo id" + std::to_string(id) + ";";
            script +=
                "'cat id" + std::to_string(id) + "') " +
                (locks[id] == "gone" ? "echo 'Load(<lock/1>) returned error, retrying after 1s: gone' >&2; "
                                       "exec sleep 600"
                                     : "echo '" + locks[id] + "'") +
                ";;\n";
        }
        script += "'list --no-lock') " + ids + "true;;\nunlock*) touch " + (folders / "asked") + ";;\nesac\n";
        RepositoryPlace place;
        place.program = folders.program(script);
        for (const std::string& location : {folders / "repository", std::string("rest:http://there")}) {
            for (std::size_t id = 0; id < locks.size(); ++id)
                folders.write("repository/locks/id" + std::to_string(id), "");
            place.location = location;
            const Repository repository(std::make_shared<const Restic>(place, processes), 7);
            const Repository::Locks found = repository.clearStaleLocks(StopSignal());
            const bool isFolder = location.starts_with('/');
            EXPECT_EQ(fs::remove(folders / "asked"), !isFolder && isResticAsked) << script;
            EXPECT_EQ(!locks.empty() && !fs::exists(folders / "repository/locks/id0"),
                      isFolder && isOwnRemoved);
            EXPECT_EQ(!found.holders.empty(), std::ranges::any_of(locks, [&](const std::string& lock) {
                return lock == hidden || lock == other;
            }));
            EXPECT_TRUE(
                IndexKeeper(repository, folders / "index").synchronize(false, StopSignal()).succeeded());
            EXPECT_EQ(fs::remove(folders / "asked"), !isFolder && isResticAsked) << "when it connects";
        }
    }
}

TEST_F(BackingUp, StoresAgainWhatTheRepositoryHasLostAndNamesWhatNobodyHas) {
    std::string noise(50000, ' '); // so that its pack is the largest
    std::ranges::generate(noise,
                          [random = std::minstd_rand()]() mutable { return static_cast<char>(random()); });
    folders.write("home/here", noise);
    folders.write("home/gone", std::string(40000, 'g'));
    const tests::EnvironmentVariable foreign("RESTIC_KEY_HINT", "0000"); // for a repository of the person's
    start();
    ASSERT_TRUE(comesToRest(2, 90000));
    fs::remove(in("gone"));
    const Array files{in("here"), in("gone")};
    ASSERT_TRUE(comesTo([&] { return colors(files) == Array{green, blue}; }));
    const auto packs = [&] {
        std::vector<fs::path> found;
        for (const auto& entry : fs::recursive_directory_iterator(folders / "repository/data"))
            if (entry.is_regular_file())
                found.push_back(entry.path());
        return found;
    };
    const auto isDone = [&] { return comesTo([&] { return pane->state("isBackupNeeded") == false; }); };

    for (const fs::path& pack : packs())
        fs::remove(pack);
    pane->call<"setPriorityBackup:">("/");
    ASSERT_TRUE(isDone());
    EXPECT_TRUE(comesTo([&] { return colors(files) == Array{green, none}; }));
    EXPECT_EQ(pane->state("damagedFileCount"), 1U);
    const Value alert = pane->state("alerts").array().front();
    EXPECT_EQ(alert["id"], "backup_damaged");
    EXPECT_TRUE(alert["text"].stringValue().ends_with("cannot be restored:\n" + in("gone")))
        << alert["text"].stringValue();

    // Only reading finds it.
    const auto largest = std::ranges::max(packs(), {}, [](const auto& each) { return fs::file_size(each); });
    fs::permissions(largest, fs::perms::owner_all);
    std::fstream(largest, std::ios::in | std::ios::out | std::ios::binary).seekp(30) << "damage";
    EXPECT_EQ(pane->call<"verify">(), "");
    EXPECT_FALSE(pane->state("verificationProgress").isAbsent());
    EXPECT_TRUE(comesTo([&] { return fs::exists(folders / "repository/damaged" / largest.filename()); }));
    EXPECT_TRUE(comesTo([&] { return colors(files) == Array{green, none}; }));
    EXPECT_TRUE(comesTo([&] { return pane->state("damagedFileCount") == 1U; }));
}

// A new machine, or a lost state folder.
TEST_F(BackingUp, ARepositoryThatIsThereNeedsItsKeyAndNoneIsMadeBesideIt) {
    folders.write("home/file", "12345");
    start();
    ASSERT_TRUE(comesToRest(1, 5));
    const std::string key = folders / "state/password";
    fs::rename(key, folders / "key");
    daemon.reset();
    fs::remove_all(folders / "state");
    start();
    ASSERT_TRUE(comesTo([&] { return !pane->state("alerts").array().empty(); }));
    const Array alerts = pane->state("alerts").array();
    ASSERT_EQ(alerts.size(), 1U);
    EXPECT_TRUE(alerts[0]["title"].stringValue().ends_with("which needs its own key."))
        << alerts[0].description();
    EXPECT_FALSE(fs::exists(key) || fs::exists(key + ".new"));
    fs::rename(folders / "key", key);
    EXPECT_TRUE(comesToRest(1, 5));
}

} // namespace
} // namespace kelvane
