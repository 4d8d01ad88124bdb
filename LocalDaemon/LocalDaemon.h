#pragma once

#include "Foundation/MainLoop.h"
#include "LocalDaemon/Backup/BackupRunner.h"
#include "LocalDaemon/Panes/AlertActions.h"
#include "LocalDaemon/Panes/NodeAnswers.h"
#include "LocalDaemon/Panes/PaneServer.h"
#include "LocalDaemon/Restore/RestoreQueue.h"
#include "LocalDaemon/Scan/FolderScan.h"
#include "LocalDaemon/State/KnownDisks.h"
#include "LocalDaemon/State/Settings/SettingsStore.h"
#include "Platform/FileDescriptor.h"
#include "Platform/SocketClaim.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace kelvane {

// The whole daemon, put together: it counts what is to be backed up, backs it up and serves panes at a
// socket.
//
// Belongs to the main thread, whose loop must run while it serves. `stop` takes back everything that `start`
// made, and waits for the threads.
class LocalDaemon {
public:
    struct Options {
        ConfigurationDefaults defaults;
        Dictionary settled; // entries that come before those of the configuration's file
        std::string socketPath;
        std::string settingsPath;
        std::string configurationPath;
        std::string indexPath; // the beginning of the names of indexes, one for each place of a repository
        std::chrono::milliseconds sendTimeout = std::chrono::seconds(10);
        // How late the end of a pause may be noticed. Not one timer for the whole pause: timers stand still
        // while the machine sleeps, and its clock may be set.
        std::chrono::milliseconds refreshInterval = std::chrono::seconds(5);
        FolderScan::Options scan;
        BackupRunner::Options backup;
        Verification::Options verification; // its path is made of `indexPath`
        std::string restoreJobsPath;
        std::string processesPath; // restic's, of this daemon and those before it
        MachineClock machineClock = readMachineClock;
        std::function<void()> showRestoreWizard = [] {}; // on any thread; returns at once
        std::shared_ptr<const FileSystem> fileSystem = std::make_shared<LocalFileSystem>();
        DaemonState::Clock clock = std::chrono::system_clock::now;
    };

    // `terminate` is called when a pane asks for the end, on any thread.
    LocalDaemon(Options options, std::shared_ptr<MainLoop> loop, std::function<void()> terminate);
    ~LocalDaemon();
    LocalDaemon(const LocalDaemon&) = delete;
    LocalDaemon& operator=(const LocalDaemon&) = delete;

    // Why it cannot serve, for people; empty when it does.
    [[nodiscard]] std::string start();
    void stop();
    // Between `start` and `stop`; empty: the repository is no folder.
    [[nodiscard]] std::string repositoryFolder() const;

private:
    [[nodiscard]] std::string claimSettings();
    [[nodiscard]] std::string makeWorld();
    [[nodiscard]] std::shared_ptr<const AlertActions> makeAlertActions() const;
    [[nodiscard]] WorkFailed workFailed() const;
    void makeRestores();
    void makeServer();
    void connectListeners();
    void refresh();

    const Options options_;
    const std::shared_ptr<MainLoop> loop_;
    const std::function<void()> terminate_;

    std::optional<SocketClaim> claim_;
    FileDescriptor settingsLock_;
    std::shared_ptr<DaemonState> state_;
    std::shared_ptr<KnownDisks> disks_;
    std::shared_ptr<FolderTree> tree_;
    std::shared_ptr<const Restic> restic_;
    std::shared_ptr<IndexKeeper> keeper_;
    std::shared_ptr<BackupRunner> runner_;
    std::shared_ptr<RestoreQueue> restores_;
    std::shared_ptr<NodeAnswers> nodes_;
    std::shared_ptr<PaneServer> server_;
    std::optional<FolderScan> scan_;
    std::shared_ptr<const Volumes> volumes_; // that the scan has seen
    std::set<std::string> mounts_;           // likewise; those that the scan has to do with
    Timer refresh_;
};

} // namespace kelvane
