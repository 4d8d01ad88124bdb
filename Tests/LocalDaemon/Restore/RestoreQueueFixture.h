#pragma once

#include "Common/RestoreStatus.h"
#include "LocalDaemon/Restore/RestoreQueue.h"
#include "LocalDaemon/Restore/Staging/RestoreStaging.h"
#include "Tests/LocalDaemon/BackedUpFolder.h"

#include <condition_variable>
#include <fcntl.h>
#include <optional>
#include <sys/xattr.h>

namespace kelvane::tests {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

inline constexpr std::int64_t longAgo = 981'173'106;
inline constexpr long nanoseconds = 123'456'789;

inline constexpr const char* copyScript = R"(mkdir -p "$4"
while [ $# -gt 0 ]; do
    if [ "$1" = --include ]; then cp -a --parents "$2" "$target"; shift; fi
    if [ "$1" = --target ]; then target=$2; shift; fi
    shift
done)";

// Returns incompressible data.
inline std::string noise(std::size_t size) {
    std::string text(size, '\0');
    std::uint32_t state = 1;
    for (char& each : text)
        each = static_cast<char>((state = state * 1664525U + 1013904223U) >> 24U);
    return text;
}

inline void setTime(const std::string& path) {
    const timespec times[] = {{longAgo, nanoseconds}, {longAgo, nanoseconds}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

// Returns everything below a folder: by relative path the type, mode, times and contents.
inline std::map<std::string, std::string> picture(const std::string& folder) {
    std::map<std::string, std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        struct stat status {};
        ::lstat(entry.path().c_str(), &status);
        std::string text = std::to_string(status.st_mode) + ' ' + std::to_string(status.st_uid) + ' ' +
                           std::to_string(status.st_mtim.tv_sec) + '.' +
                           std::to_string(status.st_mtim.tv_nsec);
        if (S_ISLNK(status.st_mode))
            text += " -> " + fs::read_symlink(entry.path()).string();
        else if (S_ISREG(status.st_mode)) {
            std::ifstream file(entry.path(), std::ios::binary);
            text += ' ' + std::string(std::istreambuf_iterator<char>(file), {});
        }
        found[entry.path().string().substr(folder.size())] = text;
    }
    return found;
}

// A default ACL in the kernel's form: user 65533 may read new files in the folder.
inline void setRule(const std::string& path, const char* kind, std::uint16_t rights = 7) {
    const struct {
        std::uint32_t version;
        struct {
            std::uint16_t tag, rights;
            std::uint32_t id;
        } entries[5];
    } rules{2, {{1, 7, ~0U}, {2, rights, 65533}, {4, 7, ~0U}, {16, 7, ~0U}, {32, 5, ~0U}}};
    ASSERT_EQ(::setxattr(path.c_str(), kind, &rules, sizeof rules, 0), 0);
}

inline mode_t modeOf(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

class RestoreQueueTest : public testing::Test {
protected:
    void TearDown() override { queue_.reset(); }

    void start(const std::string& program = "restic") {
        RestoreQueue::Options options;
        options.journalPath = folder_ / "state/jobs";
        RepositoryPlace place = folder_.place();
        place.program = program;
        options.restic = std::make_shared<Restic>(place);
        options.index = [this] {
            return folder_.index()->repositoryId().empty() ? nullptr : folder_.index();
        };
        options.onProgress = [this](const RestoreProgress& progress) {
            const std::scoped_lock guard(mutex_);
            reports_.push_back(progress);
            changed_.notify_all();
        };
        options.onEnd = [this](const std::vector<RestoreFailure>& failures) {
            const std::scoped_lock guard(mutex_);
            ends_.push_back(failures);
            changed_.notify_all();
        };
        options.waits = {milliseconds(1), milliseconds(1)};
        adjust_(options);
        queue_.emplace(options);
        queue_->start();
    }
    // Creates a script that replaces restic.
    std::string script(const std::string& text) {
        return folder_.writeProgram("fake-restic", "#!/bin/bash\n" + text);
    }
    // A restic that copies the requested files from the disk.
    std::string copying() { return script(copyScript); }
    template <class Condition>
    bool waitFor(Condition condition) {
        std::unique_lock guard(mutex_);
        return changed_.wait_for(guard, std::chrono::seconds(60), condition);
    }
    std::uint32_t add(const std::string& source, const std::string& target) {
        return queue_->add({0, 0, 50, source, target});
    }
    std::uint32_t restore(const std::string& source, const std::string& target) {
        const std::size_t before = ends_.size();
        const std::uint32_t job = add(source, target);
        EXPECT_TRUE(waitFor([&] { return ends_.size() > before; }));
        return job;
    }
    std::string home(std::string_view name) const { return folder_.home() + '/' + std::string(name); }
    [[nodiscard]] bool hasStaging(const std::string& where) const {
        for (const auto& entry : fs::directory_iterator(where))
            if (entry.path().filename().string().starts_with(stagingPrefix))
                return true;
        return false;
    }

    std::function<void(RestoreQueue::Options&)> adjust_ = [](RestoreQueue::Options&) {};
    BackedUpFolder folder_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<RestoreProgress> reports_;
    std::vector<std::vector<RestoreFailure>> ends_;
    std::optional<RestoreQueue> queue_;
};

} // namespace kelvane::tests
