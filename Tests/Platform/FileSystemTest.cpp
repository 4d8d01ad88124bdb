#include "Platform/FileSystem.h"
#include "Platform/FileContents.h"
#include "Tests/Harness/AsNobody.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

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

    // A program that shows names gets them as text, and asks with that.
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
        {folder_ / "link", 1, ELOOP}, {folder_ / "pipe", 1, EINVAL}, {folder_.path(), 1, EISDIR}};
    for (const auto& [path, limit, error] : cases) {
        const FileReading reading = readFile(path, limit);
        EXPECT_EQ(reading.error, error) << path << " up to " << limit;
        EXPECT_EQ(reading.bytes.size(), error == 0 ? 100'000U : 0U);
    }
    EXPECT_TRUE(readFile(folder_ / "link", 100'000, SymbolicLinks::Follow).succeeded());
    EXPECT_FALSE(readFile("/proc/self/status", 100'000).bytes.empty()); // claims to be empty
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
    EXPECT_EQ(folder_.read("file"), "old");
    EXPECT_EQ(folder_.names(), (std::set<std::string>{"file", "folder"}));
}

} // namespace
} // namespace kelvane::tests
