#include "FakeDaemon/FakeDaemon.h"
#include "Platform/Desktop/QtMainLoop.h"
#include "PreferencePane/Backup/BackupTabController.h"
#include "PreferencePane/Browser/ColumnBrowser.h"
#include "Tests/Harness/LocalPane.h"
#include "Tests/Harness/RunUntil.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <QApplication>
#include <QListView>
#include <array>
#include <benchmark/benchmark.h>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <utility>

// Fills a column of the Backup tab's browser, with a real folder and a real link, compared with what every
// browser needs: the listing, an lstat of each file and one remote call.

namespace kelvane::bench {
namespace {

using namespace std::chrono_literals;

// Each benchmark has its own: one that outlived `main` would use Qt after its destruction.
class Application {
    int count_ = 1;
    std::array<char, 14> name_{"kelvane-bench"};
    std::array<char*, 2> arguments_{name_.data(), nullptr};
    const std::unique_ptr<QApplication> application_ = [this] {
        ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
        return std::make_unique<QApplication>(count_, arguments_.data());
    }();
};

// A volume of that many files, with the tab in manual mode and its volumes visible.
class Tab {
public:
    explicit Tab(std::int64_t fileCount) {
        for (std::int64_t number = 0; number < fileCount; ++number)
            folder.write("Disk/Holiday picture " + std::to_string(number) + ".jpeg", "");
        DaemonWorld world;
        world.volumes = {"/Volumes/Empty", "/Volumes/Disk"};
        for (const std::string& volume : world.volumes)
            world.addFile(volume, true, 0, true);
        world.values = Dictionary{{"automaticMode", false}};
        daemon.changeWorld([&](DaemonWorld& own) { own = world; });
        std::filesystem::create_directory(folder / "Empty");
        if (!daemon.start())
            std::abort();
        pane.state->onBegin();
        tab->enableTabItems(true);
        tab->awakeFromNib();
        pane.post(KelvanePrefPaneReadyChangedNotification);
        pane.post(KelvanePrefPaneDaemonStateChangedNotification);
        pane.mainView()->layout()->addWidget(pane.backupTab());
        pane.mainView()->resize(900, 500);
        pane.mainView()->show();
    }
    ~Tab() { pane.state->onEnd(); }

    [[nodiscard]] ColumnBrowser& browser() const {
        return *pane.backupTab()->findChild<ColumnBrowser*>("manualBrowser");
    }
    void choose(int volume) const { browser().columnView(0)->setCurrentIndex(browser().rowAt(0, volume)); }
    // Reads the folder without the tab.
    [[nodiscard]] std::size_t readBare() const {
        Array paths;
        for (const auto& entry : std::filesystem::directory_iterator(folder / "Disk")) {
            struct stat status {};
            if (::lstat(entry.path().c_str(), &status) == 0)
                paths.emplace_back("/Volumes/Disk/" + entry.path().filename().string());
        }
        return pane.proxy()->call<"backupColorsForFiles:">(Value(std::move(paths))).array().size();
    }

    const tests::TemporaryFolder folder;
    FakeDaemon daemon{folder / "daemon.sock"};
    const std::shared_ptr<QtMainLoop> loop = std::make_shared<QtMainLoop>();
    tests::LocalPane pane{
        std::make_shared<Bundle>(KELVANE_PANE_FOLDER, Dictionary{{"DaemonPath", folder / "daemon.sock"}}),
        loop, Volumes("System", {{"Empty", folder / "Empty"}, {"Disk", folder / "Disk"}})};
    KelvaneInfoWindowController info{pane};
    const std::shared_ptr<BackupState> state = pane.state =
        std::make_shared<BackupState>(loop, pane.notifications(), pane.bundle());
    std::unique_ptr<KelvaneBackupTabController> tab = KelvaneBackupTabController::create(pane, info);
};

void backupColumnIsFilled(benchmark::State& state) {
    const Application application;
    const Tab tab(state.range());
    for ([[maybe_unused]] auto step : state) {
        state.PauseTiming();
        tab.choose(0);
        QCoreApplication::processEvents();
        state.ResumeTiming();
        tab.choose(1);
        if (tab.browser().rowCount(1) != state.range())
            return state.SkipWithError("rows are missing");
        QCoreApplication::processEvents(); // paints the first rows with their icons
    }
}
BENCHMARK(backupColumnIsFilled)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

void backupColumnIsReloaded(benchmark::State& state) {
    const Application application;
    const Tab tab(state.range());
    tab.choose(1);
    for ([[maybe_unused]] auto step : state)
        tab.browser().reloadColumn(1);
}
BENCHMARK(backupColumnIsReloaded)->Arg(10'000)->Unit(benchmark::kMillisecond);

void backupColumnBare(benchmark::State& state) {
    const Application application;
    const Tab tab(state.range());
    for ([[maybe_unused]] auto step : state)
        benchmark::DoNotOptimize(tab.readBare());
}
BENCHMARK(backupColumnBare)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

// Renames a file in a folder ten thousand times per second for three seconds; the last name is "zz last".
class Burst {
public:
    static constexpr std::chrono::seconds duration{3};

    explicit Burst(std::string folder) : thread_([this, folder = std::move(folder)] { run(folder + '/'); }) {}
    // Waits for the end and returns the processor time of the renaming in seconds.
    [[nodiscard]] double processorTime() {
        thread_.join();
        return processorTime_;
    }

private:
    void run(const std::string& folder) {
        constexpr auto interval = 1ms;
        constexpr int changesAtOnce = 10;
        const auto start = std::chrono::steady_clock::now();
        std::string name = folder + "zz first";
        const std::array names{folder + "burst", folder + "change"};
        for (int step = 0; step < duration / interval; ++step) {
            for (std::size_t change = 0; change < changesAtOnce; ++change)
                rename(name, names.at(change % 2));
            std::this_thread::sleep_until(start + step * interval);
        }
        rename(name, folder + "zz last");
        timespec spent{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &spent);
        processorTime_ = static_cast<double>(spent.tv_sec) + static_cast<double>(spent.tv_nsec) / 1e9;
    }
    static void rename(std::string& name, const std::string& next) {
        std::filesystem::rename(name, next);
        name = next;
    }

    double processorTime_ = 0;
    std::thread thread_;
};

// The cost of such a burst in a visible folder: the share of one core without the renaming itself, the
// longest turn of the main loop, and the seconds from the last change until the column is correct.
void backupColumnUnderABurst(benchmark::State& state) {
    const Application application;
    const Tab tab(state.range());
    tab.folder.write("Disk/zz first", "");
    tab.choose(1);
    for ([[maybe_unused]] auto step : state) {
        const std::clock_t before = std::clock();
        const auto start = std::chrono::steady_clock::now();
        Burst burst(tab.folder / "Disk");
        std::chrono::duration<double> longest{0};
        auto turn = start;
        const bool isSettled = tests::runUntil([&] {
            const auto now = std::chrono::steady_clock::now();
            longest = std::max(longest, std::chrono::duration<double>(now - std::exchange(turn, now)));
            return tab.browser().cell(1, tab.browser().rowCount(1) - 1)->title() == "zz last";
        });
        const std::chrono::duration<double> whole = std::chrono::steady_clock::now() - start;
        const double spent = static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC;
        state.counters["coreShare"] = (spent - burst.processorTime()) / whole.count();
        state.counters["longestTurn"] = longest.count();
        state.counters["settledAfter"] = (whole - Burst::duration).count();
        if (!isSettled)
            state.SkipWithError("the column is still incorrect after the burst");
    }
}
BENCHMARK(backupColumnUnderABurst)->Arg(1'000)->Arg(10'000)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace kelvane::bench
