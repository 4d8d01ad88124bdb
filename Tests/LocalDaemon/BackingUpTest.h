#pragma once

#include "Common/FileNode/FileNodeFlags.h"
#include "Common/RestoreStatus.h"
#include "LocalDaemon/Restic/Repository.h"
#include "Support/Logging.h"
#include "Tests/LocalDaemon/RunningDaemon.h"

#include <atomic>

namespace kelvane::tests {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// What a test pretends of the disks of this machine.
struct PretendedDisks {
    std::atomic<bool> isHomeMounted = false;
    std::atomic<bool> isOtherDisk = false; // at the home folder, or over its folder docs if no disk is there
    std::atomic<bool> isHomeSilent = false;
};

struct PretendedMounts : LocalFileSystem {
    PretendedMounts(Volumes volumes, const PretendedDisks& disks, std::string home)
        : LocalFileSystem(std::move(volumes)), disks_(disks), home_(std::move(home)) {}
    std::shared_ptr<const MountPoints> mounts() const override {
        MountPoints points = *LocalFileSystem::mounts();
        if (disks_.isHomeMounted)
            points[home_] = "ext4";
        else if (disks_.isOtherDisk)
            points[home_ + "/docs"] = "ext4";
        return std::make_shared<MountPoints>(std::move(points));
    }
    bool isSilent(const std::string& path, std::chrono::milliseconds) const override {
        return path == home_ && disks_.isHomeSilent;
    }
    std::string fileSystemId(const std::string&) const override { return disks_.isOtherDisk ? "B" : "A"; }

private:
    const PretendedDisks& disks_;
    const std::string home_;
};

// A test with real folders, a real repository and the real restic.
class BackingUp : public ::testing::Test, public PretendedDisks {
protected:
    [[nodiscard]] std::string in(const std::string& name) const { return folders.home() + '/' + name; }
    void start(const std::vector<Volume>& disks = {}, const std::string& program = "restic") {
        stop();
        daemon = std::make_unique<RunningDaemon>(folders, [&](LocalDaemon::Options& options) {
            options.backup.schedule.quiet = std::chrono::milliseconds(50);
            options.backup.schedule.firstRetry = std::chrono::milliseconds(100);
            options.fileSystem = std::make_shared<PretendedMounts>(
                Volumes("Boot", areDisksAway ? std::vector<Volume>() : disks), *this, folders.home());
            options.refreshInterval = std::chrono::milliseconds(200);
            if (!disks.empty())
                options.overrides.set("volumes", Array{disks.front().mountPoint});
            options.defaults.repository.program = program;
            options.overrides.set("computerNumber", 7U);
            options.overrides.set("policyExcludeList", Array{in("odd [x]/left out/"), in(".cache/")});
            if (clock.wall != 0)
                options.machineClock = [this] { return clock; };
            adjust(options);
        });
        pane = std::make_unique<TestPane>(folders.socket());
    }
    void stop() {
        pane.reset();
        daemon.reset();
    }
    template <class Condition>
    [[nodiscard]] bool comesTo(Condition condition) {
        return pane->waitFor(condition, std::chrono::seconds(60)); // restic is slow
    }
    // Waits for these totals of files and bytes in the backup, and no pending files.
    [[nodiscard]] bool comesToRest(int files, int bytes) {
        return comesTo([&] {
            const Value state = pane->call<"daemonState">();
            return state["serviceState"] == 8 && state["pendingFileCount"] == 0 &&
                   state["backedUpFileCount"] == files && state["backedupFileSize"] == bytes;
        });
    }
    Array colors(const Array& paths) { return pane->call<"backupColorsForFiles:">(Value(paths)).array(); }
    [[nodiscard]] std::size_t snapshots() const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(folders / "repository/snapshots"), {}));
    }

    [[nodiscard]] std::string indexPath() const {
        for (const auto& file : fs::directory_iterator(folders / "state"))
            if (file.path().stem().string().starts_with("index") && !file.path().has_extension())
                return file.path();
        return {};
    }

    [[nodiscard]] Value alertOf(const std::string& beginning) {
        const Value state = pane->call<"daemonState">();
        for (const Value& each : state["alerts"].array())
            if (each["id"].stringValue().starts_with(beginning))
                return each;
        return {};
    }
    // Performs the action with this index in the alert.
    [[nodiscard]] Value act(const std::string& beginning, std::size_t number) {
        const Value alert = alertOf(beginning);
        return pane->call<"performAlertAction:ofAlert:">(alert["actions"].array().at(number), alert["id"]);
    }

    [[nodiscard]] Repository repository() const {
        return {std::make_shared<Restic>(RepositoryPlace{.location = folders / "repository",
                                                         .passwordFile = folders / "state/password",
                                                         .cacheFolder = folders / "cache"}),
                7};
    }
    [[nodiscard]] std::string failuresOf(const Value& source, const std::string& target) {
        const auto job = pane->call<"restoreFile:toPath:version:priority:">(source, target, 0U, 50U);
        EXPECT_TRUE(
            comesTo([&] { return restorestatus::hasEnded(pane->call<"getRestoreJobStatus:">(job)); }));
        return pane->call<"stringValueForProfileKey:">(restorestatus::failuresKey(job)).stringValue();
    }

    const tests::DaemonFolders folders;
    bool areDisksAway = false;
    std::function<void(LocalDaemon::Options&)> adjust = [](LocalDaemon::Options&) {};
    ClockReading clock; // the machine's own clock while it is zero
    const LogSinkToken quiet = setLogSink([](const LogEntry&) {});
    std::unique_ptr<RunningDaemon> daemon;
    std::unique_ptr<TestPane> pane;
};

inline constexpr std::int32_t none = Backup_Color_None, green = Backup_Color_Green,
                              yellow = Backup_Color_Yellow, gray = Backup_Color_Gray,
                              blue = Backup_Color_Blue;

} // namespace kelvane::tests
