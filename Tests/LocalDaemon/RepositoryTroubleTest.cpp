// Faults of a repository, and snapshots that must not be forgotten.

#include "Tests/LocalDaemon/BackingUpTest.h"

#include "Foundation/Format.h"
#include "LocalDaemon/Index/RetentionAlerts.h"
#include "LocalDaemon/Restic/RepositoryMaking.h"
#include "LocalDaemon/Restic/ResticJson.h"
#include "LocalDaemon/Restic/ResticProcesses.h"
#include "Tests/Harness/AsNobody.h"

#include <ctime>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace kelvane::tests {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// A restic command that holds the lock for hours is interrupted for a restore at once.
TEST_F(BackingUp, PruningMakesRoomForARestore) {
    clock = {readMachineClock().wall, 1000, "boot"};
    folders.write("home/file", "22");
    start();
    ASSERT_TRUE(comesToRest(1, 2));
    daemon.reset();
    for (const auto& each : fs::directory_iterator(folders / "state"))
        if (each.path().extension() == ".retention") {
            RetentionRecord record(each.path(), [this] { return clock; });
            record.setRepository(repository().open(Repository::Making::Never, StopSignal()).id);
            record.noteForgotten();
        }
    clock.wall += 86400;
    clock.sinceBoot += 86400;
    folders.write("home/file", "333");
    const std::string lock = folders / "pruning";
    start({},
          folders.program("case $1 in\nprune) nice >" + folders / "priority" + "; trap 'rm " + lock +
                          "; exit 130' INT; touch " + lock + "; sleep 600 & wait;;\nrestore) if [ -e " +
                          lock + " ]; then echo 'repository is already locked' >&2; exit 1; fi;;\nesac\n" +
                          "exec restic \"$@\""));
    pane->call<"setPriorityBackup:">("/");
    ASSERT_TRUE(comesTo([&] { return fs::exists(lock); }));
    const auto job =
        pane->call<"restoreFile:toPath:version:priority:">(in("file"), folders / "back", 0U, 50U);
    EXPECT_TRUE(comesTo([&] { return pane->call<"getRestoreJobStatus:">(job) == restorestatus::finished; }));
    EXPECT_EQ(folders.read("back"), "333");
    EXPECT_EQ(folders.read("priority"), "19\n");
}

TEST_F(BackingUp, ADamagedCacheIsMadeAnewAndStopsNothing) {
    std::string text = "1";
    folders.write("home/folder/file", text);
    start();
    ASSERT_TRUE(comesToRest(1, 1));
    for (const auto& [kind, isFolder] :
         {std::pair("/data/", false), std::pair("/index/", true), std::pair("/snapshots/", false)}) {
        pane.reset();
        daemon.reset();
        std::vector<std::string> cached;
        for (const auto& each : fs::recursive_directory_iterator(folders / "cache"))
            if (each.is_regular_file() && each.path().string().find(kind) != std::string::npos)
                cached.push_back(each.path());
        ASSERT_FALSE(cached.empty()) << kind;
        for (const std::string& path : cached) {
            const auto size = fs::file_size(path);
            fs::remove(path);
            if (isFolder)
                fs::create_directory(path);
            else
                std::ofstream(path) << std::string(size, 'x');
        }
        folders.write("home/folder/file", text += '1');
        start();
        pane->call<"setPriorityBackup:">("/");
        EXPECT_TRUE(comesToRest(1, static_cast<int>(text.size()))) << kind << isFolder;
        EXPECT_TRUE(alertOf("").isAbsent()) << kind << isFolder;
    }
}

TEST_F(BackingUp, AsksBeforeManyFilesThatDisappearedAreForgotten) {
    for (int number = 0; number < 120; ++number)
        folders.write("home/photos/" + std::to_string(number), "1");
    start();
    ASSERT_TRUE(comesToRest(120, 120));
    pane->call<"setPausedMinutes:">(5U);
    for (int number = 0; number < 101; ++number)
        pane->call<"setPriorityBackup:">(in("photos/" + std::to_string(number)));
    pane->call<"setPausedMinutes:">(0U);
    ASSERT_TRUE(comesTo([&] { return pane->state("isBackupNeeded") == false; }));
    EXPECT_EQ(snapshots(), 3U) << "of everything and the last of so many orders";
    fs::remove_all(in("photos"));
    folders.write("home/other", "1");
    const std::string kind = "files_disappeared";
    const auto alert = [&] { return alertOf(kind); };
    pane->call<"setPriorityBackup:">("/");
    ASSERT_TRUE(comesTo([&] { return alert()["severity"] == "warning"; }));
    EXPECT_EQ(alert()["actions"].array().size(), 2U);
    EXPECT_EQ(act(kind, 0), "");
    EXPECT_EQ(alert()["severity"], "information");
    start();
    EXPECT_EQ(alert()["severity"], "information") << "the decision stands";
    EXPECT_EQ(act(kind, 0), "");
    EXPECT_EQ(alert(), Value());
    start();
    EXPECT_EQ(alert(), Value());
}

TEST_F(BackingUp, RestoresWhatAnOlderSnapshotHoldsWhenSomebodyHasRemovedTheNewer) {
    const auto saves = [&](int count, int bytes) {
        pane->call<"setPriorityBackup:">("/");
        return comesToRest(count, bytes);
    };
    folders.write("home/a", "1");
    folders.write("home/again", "4444");
    start();
    ASSERT_TRUE(comesToRest(2, 5));
    fs::remove(in("again"));
    folders.write("home/b", "22");
    ASSERT_TRUE(saves(3, 7)); // with what is kept
    folders.write("home/again", "666666");
    folders.write("home/c", "333");
    ASSERT_TRUE(saves(4, 12));
    const auto made = repository().snapshots(StopSignal()).snapshots;
    ASSERT_EQ(made.size(), 3U);
    ASSERT_TRUE(repository().forget({made.back().id}, StopSignal()).succeeded());
    const std::string hasGone = ": its snapshot is no longer in the repository\n";
    EXPECT_EQ(failuresOf(folders.home(), folders / "back"), in("again") + hasGone + in("c") + hasGone);
    EXPECT_EQ(folders.read("back/a"), "1");
    EXPECT_FALSE(fs::exists(folders / "back/again"));
    EXPECT_EQ(failuresOf(in("c"), folders / "other"), in("c") + ": it is not in the backup\n");
    EXPECT_EQ(failuresOf(in("again"), folders / "other"), "");
    EXPECT_EQ(folders.read("other"), "4444");
}

// An index that accepts an incomplete answer would lose files of the backup.
TEST_F(BackingUp, TakesAnAnswerHoweverLongItIsAndNoneForNone) {
    RepositoryPlace place;
    place.program = folders / "restic";
    place.passwordFile = folders / "password";
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
    const std::string node = R"({"struct_type":"node","type":"file","path":"/a/)";
    answer(snapshot + '\n' + node + "../b\"}\n" + node + "b\"}\n");
    const auto items = repository.list("one", StopSignal()).items;
    ASSERT_EQ(items.size(), 1U);
    EXPECT_EQ(items[0].path, "/a/b");
    EXPECT_FALSE(repository.snapshots(StopSignal()).outcome.succeeded());
    folders.program("echo '[]'\necho 'signal interrupt received, cleaning up' >&2\n");
    EXPECT_FALSE(repository.snapshots(StopSignal()).outcome.succeeded());
    answer("");
    EXPECT_FALSE(lists());
    EXPECT_FALSE(repository.snapshots(StopSignal()).outcome.succeeded());
    EXPECT_FALSE(repository.open(Repository::Making::Never, StopSignal()).outcome.succeeded());
}

TEST_F(BackingUp, ATickStopsACallOfRestic) {
    folders.program("trap 'echo signal interrupt received >&2; exit 0' INT\necho >'" + folders / "begun" +
                    "'\nwhile true; do sleep 0.01; done\n");
    RepositoryPlace place;
    place.program = folders / "restic";
    Restic::Call call;
    call.arguments = {"dump"};
    call.tickInterval = 10ms;
    call.onTick = [this] { return !fs::exists(folders / "begun"); };
    EXPECT_EQ(Restic(place).run(call, StopSignal()).trouble, ResticTrouble::Stopped);
}

// In a folder a single lock is removed. Elsewhere restic does it, which would also remove locks of running
// processes that it cannot see.
TEST_F(BackingUp, RemovesOnlyLocksWhoseHolderIsDead) {
    pid_t dead = 0;
    const auto processes = std::make_shared<ResticProcesses>(folders / "state/processes", ownPidNamespace());
    const auto onStart = [&](pid_t id) {
        dead = id;
        processes->noteStarted(id);
    };
    ASSERT_TRUE(runChild({.arguments = {"true"}}, {.onStart = onStart}, StopSignal()).succeeded());
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
        place.passwordFile = folders / "password";
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

// Even when the daemon has lost its own records.
TEST_F(BackingUp, MakesNoRepositoryWhereOneWasOrWhereAnythingStands) {
    const auto loseIndex = [&] {
        daemon.reset();
        for (const auto& file : fs::directory_iterator(folders / "state"))
            if (file.path().filename().string().starts_with("index"))
                fs::remove(file);
    };
    const auto says = [&](const std::string& title) {
        return comesTo([&] { return alertOf("backup_trouble")["title"].stringValue().ends_with(title); });
    };
    fs::create_directory(folders / "repository"); // created by a user
    fs::create_directory(folders / "repository/lost+found");
    folders.write("home/file", "12345");
    folders.write("home/folder/more", "");
    start();
    ASSERT_TRUE(comesToRest(2, 5));
    EXPECT_FALSE(fs::exists(folders / "repository/.kelvane-new"));

    loseIndex();
    fs::rename(folders / "repository", folders / "away");
    start();
    EXPECT_TRUE(says("repository was not found."));
    EXPECT_FALSE(fs::exists(folders / "repository"));
    fs::rename(folders / "away", folders / "repository");
    ASSERT_TRUE(comesToRest(2, 5));

    loseIndex();
    fs::remove(folders / "state/password.repositories");
    fs::rename(folders / "repository/config", folders / "config");
    start();
    EXPECT_TRUE(says("or an incomplete repository."));
    EXPECT_TRUE(alertOf("backup_trouble")["actions"].array().empty());
    EXPECT_FALSE(fs::exists(folders / "repository/config"));
    fs::rename(folders / "config", folders / "repository/config");
    ASSERT_TRUE(comesToRest(2, 5));

    fs::remove_all(folders / "repository");
    folders.write("home/file", "123456");
    EXPECT_TRUE(says("repository was not found."));
    EXPECT_EQ(act("backup_trouble", 0), "");
    EXPECT_TRUE(comesToRest(2, 6));

    for (const auto& snapshot : fs::directory_iterator(folders / "repository/snapshots"))
        fs::remove(snapshot); // as if removed with restic
    EXPECT_EQ(pane->call<"verify">(), "");
    EXPECT_TRUE(comesTo([&] { return pane->state("pendingFileCount") == 2; })) << "though none has changed";
}

TEST_F(BackingUp, ARepositoryThatCannotBeMadeLeavesNothing) {
    RepositoryPlace place;
    place.program = folders.program("touch \"$RESTIC_REPOSITORY/half\"; echo broken >&2; exit 1\n");
    place.cacheFolder = folders / "cache";
    place.passwordFile = folders.write("password", "");
    fs::permissions(place.program, fs::perms(0755));
    const AsNobody nobody(folders);
    for (const char* name : {"cache", "protected", "empty", "full/something"})
        fs::create_directories(folders / name);
    fs::permissions(folders / "protected", fs::perms(0555));
    const std::string denied = ": Permission denied";
    const struct {
        std::string location;
        ResticTrouble trouble;
        std::string errors;
    } cases[] = {
        {folders / "protected", ResticTrouble::Failed, denied},
        {folders / "protected/new", ResticTrouble::Failed, denied},
        {folders / "empty", ResticTrouble::Failed, "broken"},
        {folders / "new", ResticTrouble::Failed, "broken"},
        {folders / "full", ResticTrouble::Occupied, "full is not empty."},
        {"rest:http://there", ResticTrouble::Failed, "broken"},
    };
    const auto names = folders.names();
    for (const auto& [location, trouble, errors] : cases) {
        place.location = location;
        const ResticOutcome outcome = makeRepository(Restic(place), StopSignal());
        EXPECT_EQ(outcome.trouble, trouble) << location;
        EXPECT_TRUE(outcome.errors.ends_with(errors)) << location << ' ' << outcome.errors;
    }
    EXPECT_TRUE(fs::is_empty(folders / "empty"));
    EXPECT_TRUE(fs::is_empty(folders / "protected"));
    EXPECT_EQ(folders.names(), names);
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
    EXPECT_FALSE(fs::exists(key) || fs::exists(key + ".kelvane-new"));
    fs::rename(folders / "key", key);
    EXPECT_TRUE(comesToRest(1, 5));
}

} // namespace
} // namespace kelvane::tests
