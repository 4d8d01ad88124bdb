#include "Tests/LocalDaemon/RestoreQueueFixture.h"

#include <atomic>
#include <cerrno>
#include <sys/syscall.h>
#include <unistd.h>

namespace {
std::atomic<int> writebackError{0}; // as a disk has that takes no more
std::atomic<int> syncs{0};
} // namespace

extern "C" int syncfs(int descriptor) noexcept {
    errno = writebackError.exchange(0); // told once
    if (errno != 0 || ::syscall(SYS_syncfs, descriptor) != 0)
        return -1;
    ++syncs;
    return 0;
}

namespace kelvane::tests {
namespace {

using RestoreSyncTest = RestoreQueueTest;

TEST_F(RestoreSyncTest, WhatHasNotComeToTheDiskIsNamedAndReplacesNothing) {
    folder_.write("home/f", "12345");
    folder_.pretendBackUp();
    start(copying());
    writebackError = EIO;
    EXPECT_EQ(queue_->failures(restore(home("f"), folder_ / "a")),
              home("f") + ": it has not come to the disk: Input/output error\n");
    EXPECT_FALSE(fs::exists(folder_ / "a"));
    const int before = syncs;
    EXPECT_EQ(queue_->status(restore(home("f"), folder_ / "a")), restorestatus::finished);
    EXPECT_GE(syncs - before, 2) << "before and after the renames";
}

} // namespace
} // namespace kelvane::tests
