#include "Platform/Files/FileSystem.h"
#include "Platform/FileContents.h"
#include "Platform/Files/MountTable.h"
#include "Platform/Files/Volumes.h"
#include "Platform/SpecialFolders.h"
#include "Tests/Harness/AsNobody.h"
#include "Tests/Harness/EnvironmentVariable.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <thread>

namespace kelvane::tests {
namespace {

class FileSystemTest : public testing::Test {
protected:
    const TemporaryFolder folder_;
    const LocalFileSystem disk_{Volumes("Boot", {{"Disk", folder_.path()}})};
};

TEST_F(FileSystemTest, FindsAFileUnderItsRealAndItsVolumePath) {
    folder_.write("sub/file", "12345");
    for (const std::string& root :
         {folder_.path(), std::string("/Volumes/Disk"), "/System/Volumes/Data" + folder_.path()}) {
        EXPECT_TRUE(disk_.isDirectory(root + "/sub")) << root;
        EXPECT_FALSE(disk_.isDirectory(root + "/sub/file")) << root;
        for (const auto& [name, isThere] : {std::pair("/sub/file/", true), {"/none", false}}) {
            EXPECT_EQ(disk_.exists(root + name), isThere) << root << name;
            EXPECT_EQ(disk_.isReadable(root + name), isThere) << root << name;
            EXPECT_EQ(disk_.mountPoint(root + name).value_or(""), isThere ? "/Volumes/Disk" : "")
                << root << name;
        }
    }
    EXPECT_FALSE(disk_.exists("/Volumes/Gone"));
    EXPECT_EQ(disk_.list("/Volumes/Gone", 10).error, ENOENT);
}

TEST_F(FileSystemTest, ReadsSizeOwnerAndTimesAndTellsALinkFromWhatItLeadsTo) {
    const std::string file = folder_.write("file", "");
    // Beyond 32 bits, and before 2001 by a quarter of a second.
    ASSERT_EQ(::truncate(file.c_str(), 5LL << 30), 0);
    const timespec times[] = {{978307201, 500000000}, {978307199, 750000000}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    const std::optional<FileAttributes> attributes = disk_.attributes(file);
    ASSERT_TRUE(attributes);
    EXPECT_EQ(attributes->size, 5ULL << 30);
    EXPECT_EQ(attributes->uid, ::getuid());
    EXPECT_EQ(attributes->accessed.secondsSinceReference, 1.5);
    EXPECT_EQ(attributes->modified.secondsSinceReference, -0.25);

    for (const char* target : {"file", "nowhere"}) {
        const std::string link = folder_ / "to " + target;
        ASSERT_EQ(::symlink(target, link.c_str()), 0);
        EXPECT_EQ(disk_.exists(link), target == std::string("file"));
        EXPECT_EQ(disk_.attributes(link)->kind, FileAttributes::Kind::SymbolicLink);
        EXPECT_EQ(disk_.attributes(link)->size, std::string(target).size());
    }
}

TEST_F(FileSystemTest, ListsAFolderUpToALimitWithNamesThatAreNoText) {
    for (const char* name : {"a", ".hidden", "Caf\xC3\xA9", "\xFF\xFE"})
        folder_.write(name, "");
    FolderListing listing = disk_.list("/Volumes/Disk", 4);
    std::ranges::sort(listing.names);
    EXPECT_EQ(listing.names, (std::vector<std::string>{".hidden", "Caf\xC3\xA9", "a", "\xFF\xFE"}));
    EXPECT_TRUE(listing.isComplete);

    listing = disk_.list("/Volumes/Disk", 3);
    EXPECT_EQ(listing.names.size(), 3U);
    EXPECT_FALSE(listing.isComplete);
    EXPECT_EQ(listing.error, 0);
    EXPECT_EQ(disk_.list("/Volumes/Disk/a", 3).error, ENOTDIR);

    // Programs get names as text and pass them back as text.
    const LocalFileSystem shown(*disk_.volumes(), LocalFileSystem::Names::Text);
    const auto names = shown.list("/Volumes/Disk", 4).names;
    const std::string text = "\xEF\xBF\xBD"
                             "FF\xEF\xBF\xBD"
                             "FE";
    EXPECT_NE(std::ranges::find(names, text), names.end());
    EXPECT_TRUE(shown.exists("/Volumes/Disk/" + text) && shown.attributes("/Volumes/Disk/" + text));
    EXPECT_FALSE(disk_.exists("/Volumes/Disk/" + text));
}

TEST_F(FileSystemTest, ReadsRegularFilesWithinTheLimitOnly) {
    const std::string file = folder_.write("file", std::string(100'000, 'x'));
    ASSERT_EQ(::symlink("file", (folder_ / "link").c_str()), 0);
    ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0600), 0);
    const std::tuple<std::string, std::size_t, int> cases[] = {
        {file, 100'000, 0},           {file, SIZE_MAX, 0},           {file, 99'999, EFBIG},
        {folder_ / "link", 1, ELOOP}, {folder_ / "pipe", 1, EINVAL}, {folder_.path(), 1, EISDIR},
        {"/proc/self/mem", 1, EIO}};
    for (const auto& [path, limit, error] : cases) {
        const FileReading reading = readFile(path, limit);
        EXPECT_EQ(reading.error, error) << path << " up to " << limit;
        EXPECT_EQ(reading.bytes.size(), error == 0 ? 100'000U : 0U);
    }
    EXPECT_TRUE(readFile(folder_ / "link", 100'000, SymbolicLinks::Follow).succeeded());
    EXPECT_FALSE(readFile("/proc/self/status", 100'000).bytes.empty()); // has size 0 by its status
}

TEST_F(FileSystemTest, ReplacesAFileOrALinkAsAWhole) {
    const AsNobody nobody(folder_);
    folder_.write("old", "old");
    ASSERT_EQ(::symlink("old", (folder_ / "link").c_str()), 0);
    for (const std::string& name : {std::string("link"), std::string("old"), std::string(NAME_MAX, 'n')}) {
        EXPECT_EQ(replaceFileAtomically(folder_ / name, Data{'n', 'e', 'w'}, 0640).reason, "");
        EXPECT_EQ(folder_.read(name), "new");
        EXPECT_EQ(folder_.read("old"), name == "link" ? "old" : "new");
        struct stat status {};
        ASSERT_EQ(::lstat((folder_ / name).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode, S_IFREG | 0640U);
    }
}

TEST_F(FileSystemTest, LeavesTheOldFileAndNothingElseWhenReplacingFails) {
    const AsNobody nobody(folder_);
    folder_.write("file", "old");
    folder_.write("folder/inside", "old");
    // As if the disk were full after a thousand bytes.
    rlimit unlimited{};
    ::getrlimit(RLIMIT_FSIZE, &unlimited);
    const rlimit limit{1000, unlimited.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(replaceFileAtomically(folder_ / "file", Data(2000), 0600).error, EFBIG);
    ::setrlimit(RLIMIT_FSIZE, &unlimited);
    EXPECT_EQ(replaceFileAtomically(folder_ / "folder", Data(1), 0600).error, EISDIR);
    EXPECT_EQ(replaceFileAtomically(folder_ / "none/file", Data(1), 0600).reason,
              "cannot open " + (folder_ / "none: No such file or directory"));
    EXPECT_EQ(replaceFileAtomically("/file", Data(1), 0600).reason,
              "cannot create a file in /: Permission denied");
    EXPECT_EQ(folder_.read("file"), "old");
    EXPECT_EQ(folder_.names(), (std::set<std::string>{"file", "folder"}));
}

TEST(SpecialFolders, FollowTheEnvironmentWhereItGivesAnAbsolutePath) {
    const EnvironmentVariable home("HOME", "/home/u/");
    for (const auto& [value, folder] : {std::pair<const char*, const char*>(nullptr, "/home/u/.config"),
                                        {"", "/home/u/.config"},
                                        {"relative/folder", "/home/u/.config"},
                                        {"/else/where//", "/else/where"}}) {
        const EnvironmentVariable variable("XDG_CONFIG_HOME", value);
        EXPECT_EQ(configurationFolder(), folder);
    }
    const EnvironmentVariable none("HOME", nullptr);
    EXPECT_EQ(homeFolder().front(), '/');
}

TEST(SpecialFolders, PrivateFolderIsOursAloneOrRefused) {
    const TemporaryFolder folder;
    const std::string made = folder / "made";
    EXPECT_TRUE(ensurePrivateFolder(made));
    EXPECT_TRUE(ensurePrivateFolder(made));
    ASSERT_EQ(::symlink("made", (folder / "link").c_str()), 0);
    EXPECT_FALSE(ensurePrivateFolder(folder / "link"));
    EXPECT_FALSE(ensurePrivateFolder(folder / "none/made"));
    EXPECT_FALSE(ensurePrivateFolder(folder.write("file", "")));
    ASSERT_EQ(::chmod(made.c_str(), 0710), 0);
    EXPECT_FALSE(ensurePrivateFolder(made));
    if (::geteuid() == 0) { // only root can change the owner of a folder
        ASSERT_TRUE(::chmod(made.c_str(), 0700) == 0 && ::chown(made.c_str(), 65534, 65534) == 0);
        EXPECT_FALSE(ensurePrivateFolder(made));
    }
}

TEST(SpecialFolders, DaemonPathAlwaysFitsASocket) {
    const std::string shared = "/tmp/kelvane-" + std::to_string(::geteuid());
    const std::string tail = "/kelvane/daemon.sock";
    const std::string fits = '/' + std::string(103 - tail.size() - 1, 'r');
    for (const auto& [runtime, folder] : {std::pair(fits, fits), {fits + 'r', shared}, {"", shared}}) {
        const EnvironmentVariable variable("XDG_RUNTIME_DIR", runtime.c_str());
        EXPECT_EQ(defaultDaemonPath(), folder + tail);
    }
}

using Names = std::vector<std::string>;

TEST(Volumes, HaveNamesThatCanStandInAPathAndTellThemApart) {
    const std::pair<Names, Names> cases[] = {{{"/"}, {"System"}},
                                             {{"root", "", "/"}, {"root", "Volume", "Volume 2"}},
                                             {{"a/b", "..", "\xFF\x01z"}, {"a_b", "Volume", "__z"}},
                                             {{"\xC3\xA9", "Disk", "Disk", "Disk 2", "Disk"},
                                              {"\xC3\xA9", "Disk", "Disk 2", "Disk 2 2", "Disk 3"}}};
    for (const auto& [names, cleaned] : cases)
        EXPECT_EQ(cleanedVolumeNames(names), cleaned);
}

TEST(Volumes, MapPathsBothWaysAndKnowTheMountPoint) {
    const Volumes volumes("Boot", {{"Part", "/media/joe/Disk/part"}, {"Disk", "/media/joe/Disk/"}});
    const std::array<std::string, 4> cases[] = {
        {"/", "/", "/Volumes/Boot", "/"},
        {"/home/joe//a/", "/home/joe/a", "/Volumes/Boot/home/joe/a", "/"},
        {"/Volumes/Boot/home", "/home", "/Volumes/Boot/home", "/"},
        {"/System/Volumes/Data/home", "/home", "/Volumes/Boot/home", "/"},
        {"/System/Volumes/Data2", "/System/Volumes/Data2", "/Volumes/Boot/System/Volumes/Data2", "/"},
        {"/media/joe/Disk", "/media/joe/Disk", "/Volumes/Disk", "/Volumes/Disk"},
        {"/Volumes/Disk/a", "/media/joe/Disk/a", "/Volumes/Disk/a", "/Volumes/Disk"},
        {"/media/joe/Disk 2/a", "/media/joe/Disk 2/a", "/Volumes/Boot/media/joe/Disk 2/a", "/"},
        {"/Volumes/Boot/media/joe/Disk/a", "/media/joe/Disk/a", "/Volumes/Disk/a", "/Volumes/Disk"},
        {"/Volumes/Disk/part/a", "/media/joe/Disk/part/a", "/Volumes/Part/a", "/Volumes/Part"},
        {"a/b", "a/b", "a/b", "/"}};
    for (const auto& [path, real, volumePath, mountPoint] : cases) {
        EXPECT_EQ(volumes.realPath(path), real) << path;
        EXPECT_EQ(volumes.volumePath(path), volumePath) << path;
        EXPECT_EQ(volumes.mountPointOf(path), mountPoint) << path;
    }
    // No such volume, or no such name.
    for (const std::string& path :
         {std::string("/Volumes/Gone/a"), std::string("/Volumes/../etc/passwd"), std::string("/a\0b", 4)}) {
        EXPECT_EQ(volumes.realPath(path), std::nullopt) << path;
        EXPECT_EQ(volumes.mountPointOf(path), std::nullopt) << path;
        EXPECT_EQ(volumes.volumePath(path), path);
    }
}

TEST(MountTable, NamesTheDisksThatAreMountedForPeople) {
    const std::string table =
        "22 27 0:21 / /proc rw,relatime - proc proc rw\n"
        "26 1 0:2 / / rw - rootfs rootfs rw\n"
        "27 1 254:0 / / rw,relatime - ext4 /dev/vda rw,discard\n"
        "30 27 8:1 / /media/joe/My\\040Disk\\134 rw shared:12 master:3 - vfat /dev/sda1 rw\n"
        "31 27 8:2 / /run/media/joe/Caf\xC3\xA9 rw - btrfs /dev/sda2 rw\n"
        "32 27 0:55 / /mnt/share rw - nfs4 server:/share rw\n"
        "33 27 8:3 / /mnt/old rw - ext4 /dev/sda3 rw\n"
        "34 33 8:4 / /mnt/old rw - xfs /dev/sda4 rw\n"
        "35 27 8:5 / /media/ann/My\\040Disk\\134 rw - vfat /dev/sda5 rw\n"
        "40 27 254:0 /home /mnt/home rw - ext4 /dev/vda rw\n"
        "41 27 0:27 / /mnt/memory rw - tmpfs none rw\n"
        "42 27 8:6 / /srv/data rw - ext4 /dev/sda6 rw\n"
        "43 27 8:7 / /mnt rw - ext4 /dev/sda7 rw\n"
        "44 27 8:8 / /mnt/cut rw\n"
        "\n45";
    for (const auto& [point, type] :
         {std::pair("/", "ext4"), std::pair("/mnt/old", ""), std::pair("/mnt/share", ""),
          std::pair("/srv/data", "ext4"), std::pair("/mnt", "ext4")}) {
        const MountPoints points = mountPointsInTable(table); // /mnt hides the contents of the folder
        EXPECT_EQ(points.contains(point) ? points.at(point) : "", type) << point;
    }
    const Volumes volumes = volumesInMountTable(table, "Boot");
    std::string described;
    for (const Volume& volume : volumes.all())
        described += volume.name + " at " + volume.mountPoint + '\n';
    EXPECT_EQ(described, "Boot at /\n"
                         "My Disk\\ at /media/joe/My Disk\\\n"
                         "Caf\xC3\xA9 at /run/media/joe/Caf\xC3\xA9\n"
                         "share at /mnt/share\n"
                         "old at /mnt/old\n"
                         "My Disk\\ 2 at /media/ann/My Disk\\\n");
}

TEST(MountTable, OfThisMachineIsReadOnceUntilAMountChanges) {
    MountedVolumes mounted;
    const auto first = mounted.current();
    EXPECT_EQ(first->bootVolume().mountPoint, "/");
    EXPECT_FALSE(first->bootVolume().name.empty());
    EXPECT_EQ(mounted.current(), first);
    EXPECT_EQ(currentMountPoints()->at("/proc"), "proc");
    const LocalFileSystem disk;
    EXPECT_TRUE(disk.fileSystemId("/proc").starts_with("/ proc "));
    EXPECT_FALSE(disk.isSilent("/proc", std::chrono::milliseconds(0))) << "of this machine itself";
    EXPECT_TRUE(isMountPoint("/proc"));
    EXPECT_FALSE(isMountPoint("/proc/self"));
}

// The program that asks a mount blocks until the test lets it go.
TEST(MountTable, TellsForHowLongAMountDoesNotAnswer) {
    const TemporaryFolder folder;
    const std::string program =
        folder.write("stat", "#!/bin/sh\ncd " + folder.path() +
                                 "\necho \"$*\" >> asked\n[ -e open ] || read line < gate\n");
    ASSERT_EQ(::chmod(program.c_str(), 0700) + ::mkfifo((folder / "gate").c_str(), 0600), 0);
    const EnvironmentVariable path("PATH", folder.path().c_str());
    const std::chrono::milliseconds first = silenceOf("/a");
    EXPECT_GE(first.count(), 500);
    EXPECT_LT(first.count(), 60'000);
    EXPECT_GE(silenceOf("/a"), first);
    EXPECT_FALSE(isAnswering("/a"));
    EXPECT_EQ(folder.read("asked"), "--printf=%s /a\n") << "and not again while it waits";
    folder.write("open", "");
    ::close(::open((folder / "gate").c_str(), O_WRONLY | O_CLOEXEC));
    while (!isAnswering("/a"))
        std::this_thread::yield();
    const EnvironmentVariable nowhere("PATH", (folder / "none").c_str());
    EXPECT_TRUE(isAnswering("/a")) << "as a moment ago";
    EXPECT_EQ(silenceOf("/b"), std::chrono::milliseconds(500)) << "cannot be asked";
}

} // namespace
} // namespace kelvane::tests
