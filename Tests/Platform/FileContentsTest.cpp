#include "Platform/FileContents.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvane {
namespace {

TEST(FileContents, ReadsRegularFilesWithinTheLimitOnly) {
    const tests::TemporaryFolder folder;
    const std::string file = folder.write("file", std::string(100'000, 'x'));
    ASSERT_EQ(::symlink("file", (folder / "link").c_str()), 0);
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    const struct {
        std::string path;
        std::size_t limit;
        int error;
    } cases[] = {{file, 100'000, 0},          {file, SIZE_MAX, 0},          {file, 99'999, EFBIG},
                 {folder / "link", 1, ELOOP}, {folder / "pipe", 1, EINVAL}, {folder.path(), 1, EISDIR}};
    for (const auto& [path, limit, error] : cases) {
        const FileReading reading = readFile(path, limit);
        EXPECT_EQ(reading.error, error) << path << " up to " << limit;
        EXPECT_EQ(reading.bytes.size(), error == 0 ? 100'000U : 0U);
    }
    EXPECT_TRUE(readFile(folder / "link", 100'000, SymbolicLinks::Follow).succeeded());
    EXPECT_FALSE(readFile("/proc/self/status", 100'000).bytes.empty()); // claims to be empty
}

TEST(FileContents, ReplacesAFileOrALinkAsAWhole) {
    const tests::TemporaryFolder folder;
    folder.write("old", "old");
    ASSERT_EQ(::symlink("old", (folder / "link").c_str()), 0);
    for (const std::string& name : {std::string("link"), std::string("old"), std::string(NAME_MAX, 'n')}) {
        EXPECT_EQ(replaceFileAtomically(folder / name, Data{'n', 'e', 'w'}, 0640).reason, "");
        EXPECT_EQ(folder.read(name), "new");
        EXPECT_EQ(folder.read("old"), name == "link" ? "old" : "new");
        struct stat status {};
        ASSERT_EQ(::lstat((folder / name).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode, S_IFREG | 0640U);
    }
}

TEST(FileContents, LeavesTheOldFileAndNothingElseWhenReplacingFails) {
    const tests::TemporaryFolder folder;
    folder.write("file", "old");
    folder.write("folder/inside", "old");
    // As if the disk were full after a thousand bytes.
    rlimit unlimited{};
    ::getrlimit(RLIMIT_FSIZE, &unlimited);
    const rlimit limit{1000, unlimited.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(replaceFileAtomically(folder / "file", Data(2000), 0600).error, EFBIG);
    ::setrlimit(RLIMIT_FSIZE, &unlimited);
    EXPECT_EQ(replaceFileAtomically(folder / "folder", Data(1), 0600).error, EISDIR);
    EXPECT_EQ(folder.read("file"), "old");
    EXPECT_EQ(folder.names(), (std::set<std::string>{"file", "folder"}));
}

} // namespace
} // namespace kelvane
