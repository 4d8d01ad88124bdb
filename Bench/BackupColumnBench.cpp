#include "FakeDaemon/FakeDaemon.h"
#include "Platform/Desktop/QtMainLoop.h"
#include "PreferencePane/Backup/BackupTabController.h"
#include "PreferencePane/Browser/ColumnBrowser.h"
#include "Tests/Harness/LocalPane.h"
#include "Tests/Harness/RunUntil.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <QApplication>
#include <QListView>
#include <benchmark/benchmark.h>
#include <ctime>
#include <filesystem>
#include <sys/stat.h>
#include <thread>

// A column of the Backup tab's browser, on a real folder and a real link, beside the listing, the lstat of
// each file and the one remote call that no browser can do without.

namespace kelvane::bench {
namespace {

using namespace std::chrono_literals;

void needApplication() {
    static int count = 1;
    static char name[] = "kelvane-bench";
    static char* arguments[] = {name, nullptr};
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    static const QApplication application(count, arguments);
}

// A volume of so many files, with the tab in manual mode and its volumes in sight.
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
    // What is there, without the tab.
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
    needApplication();
    const Tab tab(state.range());
    for (auto step : state) {
        state.PauseTiming();
        tab.choose(0);
        QCoreApplication::processEvents();
        state.ResumeTiming();
        tab.choose(1);
        if (tab.browser().rowCount(1) != state.range())
            return state.SkipWithError("not all rows are there");
        QCoreApplication::processEvents(); // the first rows are painted, with their icons
    }
}
BENCHMARK(backupColumnIsFilled)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

void backupColumnIsReloaded(benchmark::State& state) {
    needApplication();
    const Tab tab(state.range());
    tab.choose(1);
    for (auto step : state)
        tab.browser().reloadColumn(1);
}
BENCHMARK(backupColumnIsReloaded)->Arg(10'000)->Unit(benchmark::kMillisecond);

void backupColumnBare(benchmark::State& state) {
    needApplication();
    const Tab tab(state.range());
    for (auto step : state)
        benchmark::DoNotOptimize(tab.readBare());
}
BENCHMARK(backupColumnBare)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

// Ten thousand changes a second in a folder that is shown, for three seconds: the share of one core that
// all of it takes (the changes themselves, too), and the time from the last change until the column is true.
void backupColumnUnderABurst(benchmark::State& state) {
    needApplication();
    const Tab tab(state.range());
    tab.choose(1);
    for (auto step : state) {
        const std::clock_t before = std::clock();
        const auto start = std::chrono::steady_clock::now();
        std::thread burst([&] {
            const std::string file = tab.folder / "Disk/burst";
            for (int change = 0; change < 30'000; change += 100) {
                for (int pair = 0; pair < 50; ++pair) {
                    tab.folder.write("Disk/burst", "");
                    std::filesystem::remove(file);
                }
                std::this_thread::sleep_until(start + change * 100us);
            }
            tab.folder.write("Disk/zz last", "");
        });
        const auto count = static_cast<int>(state.range());
        std::chrono::duration<double> longest{0};
        auto turn = std::chrono::steady_clock::now();
        const bool isSettled = tests::runUntil([&] {
            const auto now = std::chrono::steady_clock::now();
            longest = std::max(longest, std::chrono::duration<double>(now - std::exchange(turn, now)));
            const auto* const last = tab.browser().cell(1, tab.browser().rowCount(1) - 1);
            return tab.browser().rowCount(1) == count + 1 && last->title() == "zz last";
        });
        burst.join();
        const std::chrono::duration<double> whole = std::chrono::steady_clock::now() - start;
        state.counters["settledAfter"] = whole.count() - 3;
        state.counters["longestTurn"] = longest.count();
        state.counters["coreShare"] =
            static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC / whole.count();
        if (!isSettled)
            return state.SkipWithError("the column does not settle");
        state.PauseTiming();
        std::filesystem::remove(tab.folder / "Disk/zz last");
        if (!tests::runUntil([&] { return tab.browser().rowCount(1) == count; }))
            return state.SkipWithError("the column keeps a file that is gone");
        state.ResumeTiming();
    }
}
BENCHMARK(backupColumnUnderABurst)->Arg(1'000)->Arg(10'000)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace kelvane::bench
