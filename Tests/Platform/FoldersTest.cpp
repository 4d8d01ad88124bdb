#include "Platform/MountTable.h"
#include "Platform/SpecialFolders.h"
#include "Platform/Volumes.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvane::tests {
namespace {

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
    EXPECT_FALSE(ensurePrivateFolder(folder.write("file", "")));
    ASSERT_EQ(::chmod(made.c_str(), 0710), 0);
    EXPECT_FALSE(ensurePrivateFolder(made));
    if (::geteuid() == 0) { // nobody else can give a folder away
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
    const struct {
        std::string path, real, volumePath, mountPoint;
    } cases[] = {
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
    for (const auto& each : cases) {
        EXPECT_EQ(volumes.realPath(each.path), each.real) << each.path;
        EXPECT_EQ(volumes.volumePath(each.path), each.volumePath) << each.path;
        EXPECT_EQ(volumes.mountPointOf(each.path), each.mountPoint) << each.path;
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
}

} // namespace
} // namespace kelvane::tests
