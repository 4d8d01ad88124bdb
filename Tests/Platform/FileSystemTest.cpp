#include "Platform/FileSystem.h"
#include "Platform/Accounts.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvane {
namespace {

class FileSystemTest : public testing::Test {
protected:
    tests::TemporaryFolder folder_;
    LocalFileSystem disk_{Volumes("Boot", {{"Disk", folder_.path()}})};
};

TEST_F(FileSystemTest, FindsAFileUnderItsRealAndItsVolumePath) {
    folder_.write("sub/file", "12345");
    for (const std::string& root :
         {folder_.path(), std::string("/Volumes/Disk"), "/System/Volumes/Data" + folder_.path()}) {
        EXPECT_TRUE(disk_.isDirectory(root + "/sub")) << root;
        EXPECT_TRUE(disk_.exists(root + "/sub/file/")) << root;
        EXPECT_FALSE(disk_.isDirectory(root + "/sub/file")) << root;
        EXPECT_TRUE(disk_.isReadable(root + "/sub/file")) << root;
        EXPECT_EQ(disk_.mountPoint(root + "/sub/file"), "/Volumes/Disk") << root;
        EXPECT_FALSE(disk_.exists(root + "/none")) << root;
        EXPECT_FALSE(disk_.isReadable(root + "/none")) << root;
        EXPECT_EQ(disk_.mountPoint(root + "/none"), std::nullopt) << root;
    }
    EXPECT_FALSE(disk_.exists("/Volumes/Gone"));
    EXPECT_EQ(disk_.list("/Volumes/Gone", 10).error, ENOENT);
}

TEST_F(FileSystemTest, TellsALinkFromWhatItLeadsTo) {
    folder_.write("file", "12345");
    ASSERT_EQ(::symlink("file", (folder_ / "link").c_str()), 0);
    ASSERT_EQ(::symlink("nowhere", (folder_ / "broken").c_str()), 0);
    EXPECT_TRUE(disk_.exists("/Volumes/Disk/link"));
    EXPECT_FALSE(disk_.exists("/Volumes/Disk/broken"));
    EXPECT_EQ(disk_.attributes("/Volumes/Disk/link")->kind, FileAttributes::Kind::SymbolicLink);
    EXPECT_EQ(disk_.attributes("/Volumes/Disk/broken")->size, 7U);
}

TEST_F(FileSystemTest, ReadsSizeOwnerAndTimes) {
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
}

TEST_F(FileSystemTest, ListsAFolderUpToALimitAndSetsNamesApartThatAreNoText) {
    for (const char* name : {"a", ".hidden", "Caf\xC3\xA9", "\xFF\xFE"})
        folder_.write(name, "");
    FolderListing listing = disk_.list("/Volumes/Disk", 4);
    std::ranges::sort(listing.names);
    EXPECT_EQ(listing.names, (std::vector<std::string>{".hidden", "Caf\xC3\xA9", "a"}));
    EXPECT_EQ(listing.unspeakableNames, (std::vector<std::string>{"\xFF\xFE"}));
    EXPECT_TRUE(listing.isComplete);

    listing = disk_.list("/Volumes/Disk", 3);
    EXPECT_EQ(listing.names.size() + listing.unspeakableNames.size(), 3U);
    EXPECT_FALSE(listing.isComplete);
    EXPECT_EQ(listing.error, 0);
    EXPECT_EQ(disk_.list("/Volumes/Disk/a", 3).error, ENOTDIR);
}

TEST_F(FileSystemTest, ShowsVolumesByTheirNameAndOthersByTheirLastComponent) {
    EXPECT_EQ(disk_.displayName("/"), "Boot");
    EXPECT_EQ(disk_.displayName("/System/Volumes/Data"), "Boot");
    EXPECT_EQ(disk_.displayName(folder_.path() + "/"), "Disk");
    EXPECT_EQ(disk_.displayName("/Volumes/Disk/no such/file.txt"), "file.txt");
    EXPECT_EQ(disk_.displayName("/Volumes/Gone"), "Gone");
}

TEST(Accounts, NameUsersAndGroupsThatExist) {
    const SystemAccounts accounts;
    EXPECT_EQ(accounts.userName(0), "root");
    EXPECT_EQ(accounts.groupName(0), "root");
    EXPECT_EQ(accounts.userName(4123456789U), std::nullopt);
    EXPECT_EQ(accounts.groupName(4123456789U), std::nullopt);
}

} // namespace
} // namespace kelvane
