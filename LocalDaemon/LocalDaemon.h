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

// The whole daemon: it scans files, backs them up and serves panes on a socket.
//
// Belongs to the main thread, whose loop must run while it serves. `stop` undoes everything that `start`
// did, and waits for the threads.
class LocalDaemon {
public:
    struct Options {
        ConfigurationDefaults defaults;
        Dictionary overrides; // Entries that override those of the configuration file.
        std::string socketPath;
        std::string settingsPath;
        std::string configurationPath;
        // The prefix of the names of index files; each repository location has an index of its own.
        std::string indexPath;
        std::chrono::milliseconds sendTimeout = std::chrono::seconds(10);
        // How late the end of a pause may be noticed. A single timer for the whole pause would not work:
        // timers stop while the machine is suspended, and the clock may be set.
        std::chrono::milliseconds refreshInterval = std::chrono::seconds(5);
        FolderScan::Options scan;
        BackupRunner::Options backup;
        Verification::Options verification; // Its path is derived from `indexPath`.
        std::string restoreJobsPath;
        std::string processesPath; // The file with the restic processes of this daemon and earlier ones.
        MachineClock machineClock = readMachineClock;
        std::function<void()> showRestoreWizard = [] {}; // Called on any thread; must return at once.
        std::shared_ptr<const FileSystem> fileSystem = std::make_shared<LocalFileSystem>();
        DaemonState::Clock clock = std::chrono::system_clock::now;
    };

    // `terminate` is called on any thread when a pane asks the daemon to exit.
    LocalDaemon(Options options, std::shared_ptr<MainLoop> loop, std::function<void()> terminate);
    ~LocalDaemon();
    LocalDaemon(const LocalDaemon&) = delete;
    LocalDaemon& operator=(const LocalDaemon&) = delete;

    // Returns why it cannot serve, for the user; empty on success.
    [[nodiscard]] std::string start();
    void stop();
    // May be called between `start` and `stop`; empty when the repository is not a local folder.
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
    std::shared_ptr<const Volumes> volumes_; // The volumes that the scan knows.
    std::set<std::string> mounts_;           // The mounts that the scan knows; only those that concern it.
    Timer refresh_;
};

} // namespace kelvane
