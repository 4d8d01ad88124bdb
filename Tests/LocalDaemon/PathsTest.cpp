// Real folders through the real link: what panes see of single paths, and how they change it.

#include "Common/FileNodeFlags.h"
#include "Support/Logging.h"
#include "Tests/LocalDaemon/RunningDaemon.h"

#include <cerrno>
#include <fstream>
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
    [[nodiscard]] Array colors(const Array& paths) {
        return pane.call<"backupColorsForFiles:">(paths).array();
    }
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
    EXPECT_EQ(pane.call<"childrenDictionariesForPath:">(in("a")).size(), 2U); // one name is no text
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
    // Home, policy, no file, outside, by a link, another file system.
    EXPECT_EQ(colors({in("a"), in(".cache"), in("pipe"), "/Volumes/Disk/file", in("link/b"), "/proc"}),
              (Array{3, 1, 1, 1, 3, 1}));
    EXPECT_EQ(pane.call<"policyExcludeList">().array().back(), "/Volumes/Boot" + in(".local/share/Trash/"));
}

TEST_F(Paths, FollowTheRulesInBothModes) {
    ASSERT_TRUE(comesTo(3));
    EXPECT_EQ(pane.call<"excludeFileFromBackup:">("/Volumes/Boot" + in("link/b")), 0U); // that is a/b
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
    fs::create_symlink("c", in("a")); // the rule still stands where it stood
    EXPECT_EQ(pane.call<"unexcludeFileFromBackup:">(excluded[0]["path"]), 0U);

    pane.call<"setAutomaticMode:">(false);
    EXPECT_TRUE(comesTo(0));
    pane.call<"addFilesToBackup:">(Value(Array{in("c"), "/Volumes/Disk"}));
    EXPECT_TRUE(comesTo(3));
    pane.call<"removeFileFromBackup:">(in("link/new\nline"));
    EXPECT_TRUE(comesTo(2));
    EXPECT_EQ(colors({in("c"), in("a/new\nline"), "/Volumes/Disk/file", folders.home()}),
              (Array{3, 1, 3, 4}));
    folders.write("out/another", "1");
    EXPECT_TRUE(pane.hears("folder /Volumes/Disk"));
    EXPECT_TRUE(comesTo(3));
}

struct EtcIsBackedUp : NothingBackedUp {
    std::optional<BackupCopy> copyOf(const std::string& path, const FileAttributes&) const override {
        return BackupCopy{Date{5}, 3, path == "/etc"};
    }
};

TEST(NodeAnswers, ShowWhatTheEngineHasAndStayInTheFileSystemOfTheRule) {
    const auto state = std::make_shared<DaemonState>(
        Configuration{"", "", 1, 0, "/", {}}, Settings(), std::make_unique<EtcIsBackedUp>(),
        [](const Settings&, std::uint64_t) { return std::string(); }, std::chrono::system_clock::now);
    const NodeAnswers answers(state, std::make_shared<LocalFileSystem>());
    EXPECT_EQ(answers.colors(Array{"/etc", "/usr", "/proc"}), (Array{2, 3, 1}));
    const Value node = answers.node("/etc", NodeAnswers::FolderSizes::Own);
    EXPECT_EQ(node["backupDate"], Date{5});
    EXPECT_EQ(node["version"], 3);
    EXPECT_EQ(node["backupFlags"], Backup_Backup | Backup_BackedUp | Backup_Folder);
}

} // namespace
} // namespace kelvane
