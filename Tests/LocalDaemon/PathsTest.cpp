// Real folders over the real link: the status of single paths, and changes by panes.

#include "Common/FileNode/FileNodeFlags.h"
#include "LocalDaemon/Restic/AwayDisk.h"
#include "Support/Logging.h"
#include "Support/PathHelpers.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/LocalDaemon/RunningDaemon.h"

#include <cerrno>
#include <sys/stat.h>

namespace kelvane {
namespace {

namespace fs = std::filesystem;
using tests::RunningDaemon;
using tests::TestPane;

class Paths : public ::testing::Test {
protected:
    Paths() {
        for (const char* file :
             {"home/a/b/file", "home/a/new\nline", "home/a/\xFF", "home/.cache/file", "out/file"})
            folders.write(file, "12345");
        fs::create_symlink(folders / "home/a", folders / "home/link");
        fs::create_symlink("loop", folders / "home/loop");
        EXPECT_EQ(::mkfifo((folders / "home/pipe").c_str(), 0600), 0);
    }
    [[nodiscard]] std::string in(const std::string& name) const { return folders.home() + '/' + name; }
    Array colors(const Array& paths) { return pane.call<"backupColorsForFiles:">(paths).array(); }
    [[nodiscard]] bool comesTo(int count) {
        return pane.waitFor([&] { return pane.state("pendingFileCount") == count; });
    }

    const tests::DaemonFolders folders;
    const LogSinkToken quiet = setLogSink([](const LogEntry&) {});
    const RunningDaemon daemon{folders, [this](LocalDaemon::Options& options) {
                                   options.fileSystem = std::make_shared<LocalFileSystem>(
                                       Volumes("Boot", {{"Disk", folders / "out"}}));
                               }};
    TestPane pane{folders.socket()};
};

TEST_F(Paths, ShowsWhatIsOnTheDisk) {
    const Array volumes = pane.call<"childrenDictionariesForPath:">("").array();
    ASSERT_EQ(volumes.size(), 2U);
    EXPECT_EQ(volumes[0]["fileName"], "/");
    EXPECT_EQ(volumes[1]["fileName"], "/Volumes/Disk");
    EXPECT_EQ(volumes[1]["displayName"], "Disk");
    EXPECT_EQ(pane.call<"dictionaryForPath:">("/Volumes/Boot")["fileName"], "/");

    for (const std::string& root :
         {folders.home(), "/Volumes/Boot" + folders.home(), std::string("/Volumes/Disk")}) {
        const std::string real = root == "/Volumes/Disk" ? folders / "out" : folders.home();
        const Array nodes = pane.call<"childrenDictionariesForPath:">(root + '/').array();
        const auto entries = fs::directory_iterator(real);
        EXPECT_EQ(nodes.size(), std::distance(begin(entries), end(entries)));
        for (const Value& node : nodes) {
            struct stat status {};
            ASSERT_EQ(::lstat((real + '/' + node["fileName"].stringValue()).c_str(), &status), 0)
                << node.description();
            EXPECT_EQ(node["path"], root + '/' + node["fileName"].stringValue());
            EXPECT_EQ(node["size"], status.st_size);
            EXPECT_EQ(node["uid"], status.st_uid);
            EXPECT_EQ(node["isDirectory"].boolValue(), S_ISDIR(status.st_mode));
            EXPECT_TRUE(node["backupDate"].isAbsent());
            EXPECT_EQ(node, pane.call<"dictionaryForPath:">(node["path"]));
        }
    }
    EXPECT_EQ(pane.call<"childrenDictionariesForPath:">(in("a")).size(), 3U);
    const Value whole = pane.call<"dictionaryForPath:withDirSizes:">(in("a"), true);
    EXPECT_EQ(whole["size"], 15);
    EXPECT_EQ(whole["totalCount"], 3);
}

TEST_F(Paths, AnswersNothingOrTheTruthToOddPaths) {
    for (const std::string& path :
         {std::string("relative"), in("../home/a"), in("./a"), in("loop/a"), in("none"), in("a/b/file/x"),
          std::string("/Volumes/Gone"), std::string(5000, '/') + "none", std::string(5000, 'x')}) {
        EXPECT_TRUE(pane.call<"dictionaryForPath:">(path).isAbsent()) << path;
        EXPECT_EQ(pane.call<"childrenDictionariesForPath:">(path), Array()) << path;
        EXPECT_NE(pane.call<"excludeFileFromBackup:">(path), 0U) << path;
        EXPECT_NE(pane.call<"unexcludeFileFromBackup:">(path), 0U) << path;
        pane.call<"addFileToBackup:">(path);
        EXPECT_EQ(colors({path, 7}), (Array{0, 0})) << path;
    }
    EXPECT_EQ(pane.call<"excludeFileFromBackup:">("/Volumes/Disk"), static_cast<unsigned>(EINVAL));
    EXPECT_EQ(pane.call<"childrenDictionariesForPath:">(in("link")), Array());
    EXPECT_FALSE(pane.call<"childrenDictionariesForPath:">("/proc").array().empty());
    // Home, policy, no such file, outside, through a link, another file system.
    EXPECT_EQ(colors({in("a"), in(".cache"), in("pipe"), "/Volumes/Disk/file", in("link/b"), "/proc"}),
              (Array{3, 1, 1, 1, 3, 1}));
    const auto simpleFlags = [&](const std::string& path) {
        return pane.call<"dictionaryForPath:">(path)["simpleFlags"].uint32Value();
    };
    EXPECT_EQ(simpleFlags("/usr"), Backup_Simple_Enabled);
    EXPECT_EQ(simpleFlags(in(".cache")), 0U);
    const Array policy = pane.call<"policyExcludeList">().array();
    EXPECT_EQ(policy.back(), "/Volumes/Boot" + folders / "repository/");
    EXPECT_NE(std::ranges::find(policy, Value("/Volumes/Boot" + in(".local/share/Trash/"))), policy.end());
    for (const char* const path :
         {"/lost+found/", "/media/joe/Disk/lost+found/", "/media/joe/Disk/.Trash-1000/"})
        EXPECT_TRUE(std::ranges::any_of(policy, [&](const Value& pattern) {
            return kelv_isEqualToWildcardString(std::string("/Volumes/Boot") + path, pattern.stringValue());
        })) << path;
}

TEST_F(Paths, FollowTheExclusions) {
    ASSERT_TRUE(comesTo(3));
    EXPECT_EQ(pane.call<"excludeFileFromBackup:">("/Volumes/Boot" + in("link/b")), 0U); // the same as a/b
    EXPECT_TRUE(pane.hears("file /Volumes/Boot" + in("a/b")));
    EXPECT_TRUE(pane.hears("folder /Volumes/Boot" + in("a")));
    EXPECT_TRUE(comesTo(2));
    EXPECT_EQ(colors({in("a"), in("a/b"), in("a/b/file"), "/"}), (Array{3, 1, 1, 4}));
    const std::uint32_t simpleFlags = pane.call<"dictionaryForPath:">(in("a"))["simpleFlags"].uint32Value();
    EXPECT_EQ(simpleFlags, Backup_Simple_Checked | Backup_Simple_Enabled | Backup_Simple_Grayed);
    fs::remove_all(in("a/b"));
    const Array excluded = pane.call<"excludedFiles:">("/").array();
    ASSERT_EQ(excluded.size(), 1U);
    EXPECT_EQ(excluded[0]["path"], "/Volumes/Boot" + in("a/b"));
    EXPECT_NE(excluded[0]["backupFlags"].uint32Value() & Backup_Missing, 0U);
    fs::rename(in("a"), in("c"));
    fs::create_symlink("c", in("a")); // the rule still applies to its path
    EXPECT_EQ(pane.call<"unexcludeFileFromBackup:">(excluded[0]["path"]), 0U);
    EXPECT_EQ(pane.call<"excludeFileFromBackup:">(in("c")), 0U);
    pane.call<"setAutomaticMode:">(false);
    pane.call<"addFileToBackup:">(in("c/missing"));
    EXPECT_EQ(colors({in("c"), in("c/missing")}), (Array{1, 0}));
    folders.write("home/c/missing", "");
    EXPECT_EQ(colors({in("c"), in("c/missing")}), (Array{1, 1})) << "what is not there is not added";
    pane.call<"addFileToBackup:">(in("c"));
    for (int number = 0; number < 20; ++number) // a megabyte of rules
        pane.call<"removeFileFromBackup:">(in("c/" + std::to_string(number) + std::string(60'000, 'x')));
    EXPECT_EQ(pane.state("alerts").array().at(0)["id"], "rule_refused");
    pane.call<"removeFileFromBackup:">(in("c/missing"));
    EXPECT_EQ(pane.state("alerts"), Array());
}

TEST(NodeAnswers, ShowWhatTheIndexHasAndStayInTheFileSystemOfTheRule) {
    const SnapshotItem gone{
        .path = "/etc/gone?", .size = 7, .modified = FileTime(1), .changed = FileTime(2), .uid = 3, .gid = 4};
    const SnapshotItem below{.path = "/gone/below",
                             .size = 5,
                             .modified = FileTime(1),
                             .changed = FileTime(2),
                             .uid = 3,
                             .gid = 4};
    const auto index =
        std::make_shared<BackupIndex>("repository", BackupIndex::Snapshots{{4, {"id", 978307205, false}}},
                                      std::vector<BackedUpItem>{{{"/etc", ItemKind::Folder}, 0, 3, 4},
                                                                {gone, 978307200, 4, 4},
                                                                {{"/gone", ItemKind::Folder}, 0, 3, 4},
                                                                {below, 0, 3, 4}});
    Settings settings;
    settings.paths.exclusions.insert("/gone");
    const auto state = std::make_shared<DaemonState>(
        Configuration{.serverURL = "", .userEmail = "", .computerNumber = 1, .home = "/", .policy = {}},
        settings, index, [](const Settings&, std::uint64_t) { return std::string(); },
        std::chrono::system_clock::now);
    const auto fileSystem = std::make_shared<LocalFileSystem>();
    const NodeAnswers answers(state, std::make_shared<KnownDisks>(state, fileSystem), fileSystem,
                              std::make_shared<FolderTree>());
    EXPECT_EQ(answers.colors(Array{"/etc", "/usr", "/proc", "/gone", "/etc/gone?"}), (Array{2, 3, 1, 5, 5}));
    const Value node = answers.node("/etc", NodeAnswers::FolderSizes::Own);
    EXPECT_EQ(node["backupDate"], Date{5}); // when it was last complete
    EXPECT_EQ(node["version"], 3);
    EXPECT_EQ(node["backupFlags"], Backup_Backup | Backup_BackedUp | Backup_Folder);

    const Value missing = answers.node("/etc/gone?", NodeAnswers::FolderSizes::Own);
    EXPECT_EQ(missing["backupFlags"], Backup_Backup | Backup_BackedUp | Backup_Missing);
    EXPECT_EQ(missing["size"], 7);
    EXPECT_EQ(missing["backupDate"], Date{0});
    const Array children = answers.children("/etc").array();
    EXPECT_NE(std::ranges::find(children, missing), children.end());
    EXPECT_EQ(answers.children("/gone").array().at(0)["fileName"], "below");
    const Value folder = answers.node("/gone", NodeAnswers::FolderSizes::Contents);
    EXPECT_TRUE(folder["isDirectory"].boolValue());
    EXPECT_EQ(folder["size"], 5);
    EXPECT_EQ(folder["backupFlags"].uint32Value() & (Backup_Not_Active | Backup_Exclude), Backup_Exclude);
}

// Without the program that asks it, a mount on another machine counts as one that does not respond.
TEST(NodeAnswers, DoNotAccessAMountThatDoesNotRespond) {
    struct Remote : LocalFileSystem {
        std::shared_ptr<const MountPoints> mounts() const override {
            return std::make_shared<MountPoints>(MountPoints{{"/", "ext4"}, {"/etc", "nfs4"}});
        }
    };
    const tests::EnvironmentVariable programs("PATH", "/nowhere");
    const auto state = std::make_shared<DaemonState>(
        Configuration{.serverURL = "", .userEmail = "", .computerNumber = 1, .home = "/", .policy = {}},
        Settings(), std::make_shared<BackupIndex>(),
        [](const Settings&, std::uint64_t) { return std::string(); }, std::chrono::system_clock::now);
    const auto fileSystem = std::make_shared<Remote>();
    const NodeAnswers answers(state, std::make_shared<KnownDisks>(state, fileSystem), fileSystem,
                              std::make_shared<FolderTree>());
    const Value folder = answers.node("/etc", NodeAnswers::FolderSizes::Contents);
    EXPECT_TRUE(folder["isDirectory"].boolValue());
    EXPECT_EQ(folder["size"], 0);
    EXPECT_TRUE(answers.node("/etc/passwd", NodeAnswers::FolderSizes::Own).isAbsent());
    EXPECT_EQ(answers.children("/etc"), Array());
    EXPECT_FALSE(answers.children("/usr").array().empty());
}

TEST(AwayDisk, BelongsWhereTheTableOrTheNameOfTheFolderSays) {
    const std::string fstab = "# /dev/sdz /backup ext4\nUUID=1 / ext4\nUUID=2 /my\\040disk ext4 noauto\n"
                              "UUID=3 none swap sw\nUUID=4 /data xfs\n";
    const std::tuple<const char*, std::set<std::string>, const char*> cases[] = {
        {"/my disk/repository", {}, "/my disk"},
        {"/my disk/repository", {"/my disk"}, ""},
        {"/data/a/b", {"/my disk"}, "/data"},
        {"/database/a", {}, ""},
        {"/backup/a", {}, ""},
        {"/mnt/usb/a/b", {}, "/mnt/usb"},
        {"/mnt/usb/a/b", {"/mnt/usb"}, ""},
        {"/mnt/usb/a", {"/mnt"}, ""},
        {"/media/ann/HD/a", {}, "/media/ann/HD"},
        {"/media/ann/HD/a", {"/media/ann/HD"}, ""},
        {"/media/usb/a", {"/media/usb"}, ""},
        {"/run/media/ann/HD", {}, "/run/media/ann/HD"},
        {"/home/joe/mnt/usb", {}, ""}};
    for (const auto& [folder, mounted, away] : cases)
        EXPECT_EQ(awayMountPointOf(
                      folder, fstab,
                      [&mounted = mounted](const std::string& path) { return mounted.contains(path); }),
                  away)
            << folder;
}

} // namespace
} // namespace kelvane
