#pragma once

#include "LocalDaemon/Index/BackupIndex.h"
#include "LocalDaemon/Restic/Repository.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>

namespace kelvane::tests {

// The item as a snapshot of its current state has it.
inline SnapshotItem itemAt(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    SnapshotItem item{
        .path = path, .modified = FileTime(status.st_mtim), .changed = FileTime(status.st_ctim)};
    if (S_ISDIR(status.st_mode))
        item.kind = ItemKind::Folder;
    else
        item.size = static_cast<std::uint64_t>(status.st_size);
    if (S_ISLNK(status.st_mode))
        item.kind = ItemKind::Link;
    item.uid = status.st_uid;
    item.gid = status.st_gid;
    item.mode = static_cast<std::uint16_t>(status.st_mode & ALLPERMS);
    return item;
}

// The folder and everything in it.
inline std::vector<SnapshotItem> itemsOf(const std::string& folder) {
    std::vector<SnapshotItem> items{itemAt(folder)};
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
        items.push_back(itemAt(entry.path()));
    return items;
}

// A folder "home", and an index of what `backUp` has saved to the repository beside it or `pretendBackUp` has
// found on the disk. Each index replaces the previous one, and keeps the paths that only that one has.
class BackedUpFolder : public TemporaryFolder {
public:
    BackedUpFolder() {
        std::filesystem::create_directories(home());
        write("password", "secret");
    }

    [[nodiscard]] std::string home() const { return *this / "home"; }
    [[nodiscard]] std::shared_ptr<const BackupIndex> index() const { return index_; }
    [[nodiscard]] RepositoryPlace place() const {
        return {*this / "repository", *this / "password", *this / "cache", {}, "restic"};
    }

    // `unread`: a path that cannot be read, which the snapshot lacks and the index takes from an earlier one.
    void backUp(const std::string& unread = {}) {
        if (!std::filesystem::exists(*this / "repository"))
            expectSuccess({"init"});
        expectSuccess({"backup", "--quiet", "--tag", repository().tag(), "--exclude", unread, home()});
        std::vector<Snapshot> snapshots = repository().snapshots(StopSignal()).snapshots;
        ASSERT_FALSE(snapshots.empty());
        if (!unread.empty())
            snapshots.back().lacks = {unread};
        auto contents = repository().list(snapshots.back().id, StopSignal());
        EXPECT_TRUE(contents.outcome.succeeded());
        index_ = std::make_shared<BackupIndex>(
            indexWith(*index_, "repository", snapshots.back(), std::move(contents.items)));
    }
    void pretendBackUp() {
        index_ = std::make_shared<BackupIndex>(
            indexWith(*index_, "repository", {std::string(64, 'a'), 1}, itemsOf(home())));
    }

private:
    [[nodiscard]] Repository repository() const { return {std::make_shared<Restic>(place()), 1}; }
    void expectSuccess(const std::vector<std::string>& arguments) const {
        Restic::Call call;
        call.arguments = arguments;
        const ResticOutcome outcome = Restic(place()).run(call, StopSignal());
        EXPECT_TRUE(outcome.succeeded()) << outcome.errors;
    }

    std::shared_ptr<const BackupIndex> index_ = std::make_shared<BackupIndex>();
};

} // namespace kelvane::tests
