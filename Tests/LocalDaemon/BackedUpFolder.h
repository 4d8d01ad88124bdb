#pragma once

#include "LocalDaemon/Index/BackupIndex.h"
#include "LocalDaemon/Restic/Repository.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>

namespace kelvane::tests {

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
        std::vector<SnapshotItem> items;
        const auto add = [&items](const std::filesystem::directory_entry& entry) {
            items.push_back({entry.path(), entry.is_directory() ? ItemKind::Folder : ItemKind::File,
                             entry.is_directory() ? 0 : entry.file_size()});
            struct stat status {};
            ::lstat(entry.path().c_str(), &status);
            items.back().modified = FileTime(status.st_mtim);
            items.back().changed = FileTime(status.st_ctim);
            items.back().mode = static_cast<std::uint16_t>(entry.status().permissions());
        };
        add(std::filesystem::directory_entry(home()));
        for (const auto& entry : std::filesystem::recursive_directory_iterator(home()))
            add(entry);
        index_ = std::make_shared<BackupIndex>(
            indexWith(*index_, "repository", {std::string(64, 'a'), 1}, std::move(items)));
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
