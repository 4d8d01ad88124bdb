#include "LocalDaemon/Restore/Staging/NameClashes.h"
#include "Tests/LocalDaemon/Restore/RestoreQueueFixture.h"

#include <atomic>
#include <cerrno>
#include <sys/syscall.h>
#include <unistd.h>

namespace {
std::atomic<int> writebackError{0}; // as of a failing disk
std::atomic<int> syncs{0};
std::atomic<int> syncsBefore{0}; // the error
} // namespace

extern "C" int syncfs(int descriptor) noexcept {
    errno = syncsBefore-- > 0 ? 0 : writebackError.exchange(0); // reported once
    if (errno != 0 || ::syscall(SYS_syncfs, descriptor) != 0)
        return -1;
    ++syncs;
    return 0;
}

namespace kelvane::tests {

using RestoreSyncTest = RestoreQueueTest;

TEST_F(RestoreSyncTest, WhatHasNotComeToTheDiskIsNamedAndReplacesNothing) {
    folder_.write("home/f", "12345");
    folder_.pretendBackUp();
    start(copying());
    writebackError = EIO;
    EXPECT_EQ(queue_->failures(restore(home("f"), folder_ / "a")),
              home("f") + ": it was not written to the disk: Input/output error\n");
    EXPECT_FALSE(fs::exists(folder_ / "a"));
    const int before = syncs;
    EXPECT_EQ(queue_->status(restore(home("f"), folder_ / "a")), restorestatus::finished);
    EXPECT_GE(syncs - before, 2) << "before and after the renames";
    syncsBefore = 1;
    writebackError = EIO;
    EXPECT_EQ(queue_->failures(restore(home("f"), folder_ / "b")),
              home("f") + ": it was not written to the disk: Input/output error\n");
}

// A second spelling of a file's name, as on a case-insensitive disk.
TEST(NameClashes, AreNamesOfWhichOneIsNoEntry) {
    const TemporaryFolder folder;
    for (const char* name : {"a", "b", "c"})
        folder.write(name, name);
    const FileDescriptor opened = openFolder(folder.path());
    EXPECT_TRUE(tellsNamesApart(opened.get()));
    EXPECT_TRUE(hasEntry(opened.get(), "a") && !hasEntry(opened.get(), "./a"));
    EXPECT_EQ(clashingNames(opened.get(), {"a", "b", "c", "./x"}), std::set<std::string>());
    EXPECT_EQ(folder.names(), (std::set<std::string>{"a", "b", "c"}));
    EXPECT_EQ(clashingNames(opened.get(), {"a", "./a", "b", "./c"}),
              (std::set<std::string>{"./a", "./c", "a", "c"}));
}

} // namespace kelvane::tests
