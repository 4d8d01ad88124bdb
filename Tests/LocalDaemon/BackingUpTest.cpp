#include "Tests/LocalDaemon/BackingUpTest.h"

#include "Foundation/Unicode.h"

namespace kelvane::tests {

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

    // Paused, so that pending files are visible.
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
    ASSERT_TRUE(comesToRest(4, 18)); // including the deleted one
    EXPECT_EQ(snapshots(), 2U);
    EXPECT_TRUE(pane->hears("file /Volumes/"));
}

TEST_F(BackingUp, AnExcludedFileLeavesTheBackupOnlyWithASnapshotWithoutIt) {
    folders.write("home/a/file", "12345");
    folders.write("home/new", "1");
    start();
    ASSERT_TRUE(comesToRest(2, 6));
    EXPECT_EQ(pane->call<"excludeFileFromBackup:">(in("a")), 0U);
    EXPECT_EQ(colors({in("a"), in("a/file"), in("new")}), (Array{blue, blue, green}));
    ASSERT_TRUE(comesTo([&] { return pane->state("serviceState") == 5; }));
    pane->call<"setPriorityBackup:">("/");
    ASSERT_TRUE(comesToRest(2, 6));
    EXPECT_EQ(snapshots(), 2U);

    start(); // the index is loaded before restic is called
    EXPECT_EQ(colors({in("a/file"), in("new")}), (Array{blue, green}));
    // An older snapshot contains the file that is selected again, but a restore of the home folder would omit
    // it.
    pane->call<"setPausedMinutes:">(5U);
    EXPECT_EQ(pane->call<"unexcludeFileFromBackup:">(in("a")), 0U);
    EXPECT_TRUE(comesTo([&] { return colors({in("a/file"), in("a")}) == Array{yellow, yellow}; }));
    pane->call<"setPausedMinutes:">(0U);
    pane->call<"setPriorityBackup:">("/");
    ASSERT_TRUE(comesToRest(2, 6));
    EXPECT_EQ(colors({in("a/file"), in("a")}), (Array{green, green}));
}

// Each of these has the same form as another one in restic's JSON; one has that form as its name on the disk.
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
    start(); // the index is loaded from its file, and the rule from the settings
    EXPECT_EQ(colors(texts), (Array{green, green, blue, green, green, green}));
    fs::remove_all(folders.home());
    EXPECT_EQ(failuresOf(folders.home(), folders.home()), "");
    for (const std::string& name : names)
        EXPECT_EQ(folders.read("home/" + name), name);
    EXPECT_EQ(fs::status(in("odd [x]")).permissions(), fs::perms::owner_all);
    EXPECT_TRUE(fs::is_empty(in("odd [x]")));
    fs::create_directories(folders / "out/in the way");
    EXPECT_EQ(failuresOf(texts[3], folders / "out"), texts[3].stringValue() + ": a folder is in its place\n");
}

TEST_F(BackingUp, SaysOfWhichLinksResticLosesTheTargets) {
    const std::string unsure =
        ": the link's target may not have been UTF-8, which restic cannot store; not restored\n";
    fs::create_symlink("\xEF\xBF\xBD", in("kept"));
    fs::create_symlink("\xFF", in("lost"));
    folders.write("home/deleted", "1");
    start();
    ASSERT_TRUE(comesTo([&] {
        return colors({in("kept"), in("lost")}) == Array{green, yellow} &&
               pane->state("alerts").description().find(in("lost") + ": the target") != std::string::npos;
    })) << pane->state("alerts").description();
    fs::remove(in("deleted"));
    pane->call<"setPriorityBackup:">("/");
    EXPECT_TRUE(comesTo([&] {
        fs::remove_all(folders / "out");
        return failuresOf(folders.home(), folders / "out") == in("lost") + unsure &&
               !fs::exists(folders / "out/deleted");
    })) << "the link is in the snapshot, which lacks nothing";
    EXPECT_EQ(fs::read_symlink(folders / "out/kept"), "\xEF\xBF\xBD");
    EXPECT_FALSE(fs::exists(fs::symlink_status(folders / "out/lost")));
    fs::remove(in("kept"));
    EXPECT_EQ(failuresOf(in("kept"), in("kept")), in("kept") + unsure);
}

TEST_F(BackingUp, ComesBackFromALostRepositoryIndexAndKey) {
    folders.write("home/file", "12345");
    adjust = [jobs = folders.write("no folder", "") + "/jobs"](LocalDaemon::Options& options) {
        options.backup.schedule.firstRetry = options.backup.schedule.longestRetry = 24h;
        options.restoreJobsPath = jobs;
    };
    start();
    ASSERT_TRUE(comesToRest(1, 5));
    fs::rename(folders / "repository", folders / "away");
    folders.write("home/file", "123456");
    pane->call<"setPriorityBackup:">("/");
    EXPECT_TRUE(comesTo([&] { return pane->state("serviceState") == 19; }));
    EXPECT_FALSE(fs::exists(folders / "repository")); // a new one would hide the loss
    const auto job =
        pane->call<"restoreFile:toPath:version:priority:">(in("file"), folders / "back", 0U, 50U);
    ASSERT_TRUE(comesTo([&] { return alertOf(restorestatus::waitAlert).isDictionary(); }));
    EXPECT_EQ(alertOf("restore_jobs_unkept")["title"], "Restores are lost when the backup daemon ends.");
    fs::rename(folders / "away", folders / "repository");
    EXPECT_TRUE(comesTo([&] { return pane->call<"getRestoreJobStatus:">(job) == restorestatus::finished; }))
        << "it has the repository connected without a wait";
    EXPECT_EQ(folders.read("back"), "12345");
    EXPECT_EQ(alertOf("restore_jobs_unkept"), Value());
    EXPECT_TRUE(comesToRest(1, 6));

    stop();
    std::ofstream(indexPath()) << "nonsense";
    fs::remove(in("file"));
    start();
    EXPECT_TRUE(comesToRest(1, 6)); // with the contents of the repository
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

    const auto made = repository().snapshots(StopSignal()).snapshots;
    ASSERT_EQ(made.size(), 2U);
    EXPECT_FALSE(made[0].isPartial);
    EXPECT_TRUE(made[1].isPartial) << "so that it does not replace the one that holds the disk";
    for (const SnapshotItem& item : repository().list(made[1].id, StopSignal()).items)
        EXPECT_FALSE(item.path.starts_with(disk)) << "an empty mount point is not a folder of the disk";
}

// The index may be lost, and with it the only record that a folder disappeared while restic was running,
// perhaps to a place that restic had already read, and that it could not be read.
TEST_F(BackingUp, TheRepositorySaysWhichSnapshotLacksSomething) {
    folders.write("home/docs/file", "12345");
    folders.write("home/own", "1");
    start();
    ASSERT_TRUE(comesToRest(2, 6));
    for (const auto& [number, isPartial] : {std::pair(2, false), std::pair(13, true)}) {
        const std::string error =
            R"({"message_type":"error","error":{"Err":)" + std::to_string(number) + R"(},"item":"'$item'"})";
        start({}, folders.program("[ $1 = backup ] || exec restic \"$@\"\nfor item in " + in("docs") +
                                  " /none{1..6}; do echo '" + error + "'; done >&" + (isPartial ? '1' : '2') +
                                  "\nexec restic \"$@\" --exclude " + in("docs")));
        folders.write("home/own", error);
        const std::size_t count = snapshots() + 1;
        pane->call<"setPriorityBackup:">("/");
        ASSERT_TRUE(comesTo([&] { return pane->state("isBackupNeeded") == false && snapshots() == count; }));
        const Snapshot made = repository().snapshots(StopSignal()).snapshots.back();
        EXPECT_EQ(made.isPartial, isPartial) << number;
        EXPECT_FALSE(made.tellsOf(in("docs/file"))) << number;
    }
    EXPECT_TRUE(comesTo([&] {
        return alertOf("files_not_read")["text"].stringValue().ends_with("\nand 2 more (see the log)");
    }));
    pane->call<"excludeFileFromBackup:">(folders.home());
    pane->call<"setPriorityBackup:">("/");
    EXPECT_TRUE(comesTo([&] { return !alertOf("files_not_read").isDictionary(); }))
        << "nothing is to be saved";
}

// More of them than restic gets as arguments; the folders themselves are saved.
TEST_F(BackingUp, LeavesOutTheContentsOfManyFolders) {
    constexpr int count = 103;
    Array excluded;
    for (int number = 0; number < count; ++number) {
        const std::string folder = "$HOME [" + std::to_string(number) + ']';
        folders.write("home/" + folder + "/left out/file", "1");
        excluded.emplace_back(in(folder + "/left out/"));
    }
    folders.write("home/own", "22");
    adjust = [&](LocalDaemon::Options& options) { options.overrides.set("policyExcludeList", excluded); };
    start();
    ASSERT_TRUE(comesToRest(1, 2));
    int emptied = 0;
    for (const SnapshotItem& item :
         repository().list(repository().snapshots(StopSignal()).snapshots.at(0).id, StopSignal()).items) {
        EXPECT_FALSE(item.path.ends_with("/left out")) << item.path;
        emptied += item.path.ends_with(']') ? 1 : 0;
    }
    EXPECT_EQ(emptied, count);
    EXPECT_FALSE(fs::exists(folders / "cache/kelvane-patterns"));
}

TEST_F(BackingUp, SaysWhileTheFileSystemOfTheHomeDoesNotRespond) {
    folders.write("home/file", "12345");
    isHomeMounted = true;
    start();
    ASSERT_TRUE(comesToRest(1, 5));
    isHomeSilent = true;
    const std::string silent = "The file system mounted at " + folders.home() + " does not respond.";
    EXPECT_TRUE(comesTo([&] { return alertOf("disk_away")["title"] == silent; }));
    isHomeSilent = false;
    EXPECT_TRUE(comesTo([&] { return alertOf("disk_away") == Value(); }));
}

TEST_F(BackingUp, AHomeThatIsNotMountedIsLeftAloneUntilAPersonGivesItUp) {
    const std::string kind = "disk_away";
    folders.write("home/folder/file", "12345");
    isHomeMounted = true;
    start();
    ASSERT_TRUE(comesToRest(1, 5));
    daemon.reset(); // unmounted while no daemon runs
    fs::rename(folders.home(), folders / "disk");
    folders.write("home/left", "1"); // below the mount point
    isHomeMounted = false;
    start();
    pane->call<"setPriorityBackup:">("/");
    ASSERT_TRUE(comesTo([&] { return pane->state("isBackupNeeded") == false; }));
    EXPECT_EQ(snapshots(), 1U);
    EXPECT_EQ(colors({in("folder/file"), in("left")}), (Array{blue, none}));
    EXPECT_EQ(alertOf(kind)["title"], "The disk at " + folders.home() + " is not mounted.");
    EXPECT_EQ(failuresOf(in("folder"), folders / "back"), "");
    EXPECT_EQ(folders.read("back/file"), "12345");
    EXPECT_NE(failuresOf(in("folder/file"), in("folder/file")), "");
    EXPECT_EQ(act(kind, 0), "");
    start();
    EXPECT_EQ(alertOf(kind)["actions"].array().size(), 1U) << "the decision stands";

    EXPECT_EQ(act(kind, 0), "");
    const auto turns = [&](const std::string& name, std::int32_t color) {
        pane->call<"setPriorityBackup:">("/");
        return comesTo([&] { return colors({in(name)}) == Array{color}; });
    };
    EXPECT_TRUE(turns("left", green));
    start();
    EXPECT_EQ(alertOf(kind), Value());
    fs::remove(in("left")); // a disk that was given up may be empty
    EXPECT_TRUE(turns("left", blue));

    isHomeMounted = true; // and a different disk is mounted
    EXPECT_TRUE(comesTo([&] { return alertOf(kind)["severity"] == "warning"; }));
    EXPECT_EQ(failuresOf(in("folder/file"), in("folder/file")), "");
    EXPECT_TRUE(turns("folder/file", green));
    EXPECT_EQ(alertOf(kind), Value());
}

TEST_F(BackingUp, WhatIsHiddenByAnotherDiskDoesNotCountAsDeleted) {
    for (const bool isWholeHome : {false, true}) {
        isHomeMounted = isWholeHome;
        isOtherDisk = false;
        folders.write("home/docs/file", "12345");
        folders.write("home/own", isWholeHome ? "2" : "1");
        start();
        if (isWholeHome) { // which hides the files in the folder
            EXPECT_EQ(act("disk_away", 1), "");
        }
        pane->call<"setPriorityBackup:">("/");
        ASSERT_TRUE(isWholeHome ? comesToRest(3, 7) : comesToRest(2, 6)) << "with the deleted one";
        isOtherDisk = true;
        fs::remove(in("docs/file"));
        folders.write("home/other", "1");
        ASSERT_TRUE(comesTo([&] { return alertOf("disk_away")["severity"] == "warning"; })) << isWholeHome;
        pane->call<"setPriorityBackup:">("/");
        ASSERT_TRUE(comesTo([&] {
            return pane->state("isBackupNeeded") == false && colors({in("other")}) != Array{yellow};
        }));
        EXPECT_EQ(colors({in("docs/file"), in("other")}), (Array{blue, isWholeHome ? blue : green}));
        EXPECT_EQ(failuresOf(in("docs"), folders / "back"), "") << "the last version of the folder";
        EXPECT_EQ(folders.read("back/file"), "12345");
        fs::remove_all(folders / "back");
        EXPECT_NE(failuresOf(in("docs/file"), in("docs/file")), "");
        EXPECT_FALSE(fs::exists(in("docs/file")));
        fs::remove(in("other"));
        EXPECT_EQ(act("disk_away", 1), ""); // forget-disk
        pane->call<"setPriorityBackup:">("/");
        EXPECT_TRUE(comesTo([&] { return alertOf("disk_away") == Value(); })) << isWholeHome;
    }
}

// Like after a kill between a backup and the listing of its snapshot.
TEST_F(BackingUp, RestoresFromTheRepositoryAndNotFromAnOlderIndex) {
    folders.write("home/file", "1");
    start();
    ASSERT_TRUE(comesToRest(1, 1));
    fs::copy_file(indexPath(), folders / "older");
    folders.write("home/file", "22");
    folders.write("home/new", "3");
    pane->call<"setPriorityBackup:">("/");
    ASSERT_TRUE(comesToRest(2, 3));
    pane->call<"setPausedMinutes:">(5U);
    stop();
    fs::copy_file(folders / "older", indexPath(), fs::copy_options::overwrite_existing);
    for (const char* name : {"file", "new"})
        fs::remove(in(name));
    start();
    for (const char* name : {"file", "new"})
        EXPECT_EQ(failuresOf(in(name), in(name)), "");
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
    ASSERT_EQ(volumes.size(), 2U); // and none for a disk without files in the backup
    EXPECT_EQ(volumes[1]["fileName"], "/Volumes/Disk");
    const Array children = pane->call<"childrenDictionariesForPath:">("/Volumes/Disk").array();
    ASSERT_EQ(children.size(), 1U);
    EXPECT_EQ(children[0]["path"], "/Volumes/Disk/file");
    EXPECT_NE(pane->call<"restoreFile:toPath:version:priority:">("/Volumes/Disk/file", in("back"), 0U, 0U),
              0U);
    EXPECT_TRUE(comesTo([&] { return fs::exists(in("back")) && fs::file_size(in("back")) == 5; }));
    // Files restored to the mount point would be hidden once the disk is mounted.
    const std::uint32_t job =
        pane->call<"restoreFile:toPath:version:priority:">("/Volumes/Disk/file", file, 0U, 0U);
    EXPECT_TRUE(comesTo(
        [&] { return pane->call<"getRestoreJobStatus:">(job) == std::uint32_t{restorestatus::incomplete}; }));
    EXPECT_FALSE(fs::exists(file));
}

} // namespace kelvane::tests
