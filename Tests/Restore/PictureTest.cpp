#include "Tests/Harness/Pictures.h"
#include "Tests/Restore/RestoreTabTest.h"

namespace kelvane::tests {
namespace {

class Pictures : public RestoreTabTest {
protected:
    void SetUp() override {
        if (!arePicturesWanted())
            GTEST_SKIP() << "KELVANE_PICTURES names no folder";
        daemon.changeWorld([](DaemonWorld& world) {
            world = demoWorld();
            world.volumes.emplace_back("/Volumes/Empty");
            world.addFile("/Volumes/Empty", true, 0, true);
        });
        pane.mainView()->resize(760, 480);
        tab->progressView()->hide();
    }
    void take(const std::string& name) const {
        QDialog* const sheet = alert() ? static_cast<QDialog*>(alert()) : panel();
        takePicture(sheet ? *sheet : *pane.mainView(), "restore-" + name);
        delete sheet;
    }
};

TEST_F(Pictures, OfTheTree) {
    take("disconnected");
    daemon.answer("childrenDictionariesForPath:", Array());
    connect();
    take("empty");
    daemon.answerAsUsual("childrenDictionariesForPath:");
    browser().reloadColumn(0);
    take("volumes");
    choose({"System", "home", "maria", "Documents", "Thesis", "Chapter 1.odt"});
    take("deep");
    choose({"Chapter 2.odt"}, Qt::ControlModifier, 5);
    take("several");
    for (const int destination : {0, 1, 2}) {
        pressRestore(destination);
        take("sheet-" + std::to_string(destination));
    }
    pane.isAuthorized = false;
    tab->enableTabItems(true);
    take("locked");
}

TEST_F(Pictures, OfTheProgress) {
    pane.restoreTab()->hide();
    tab->progressView()->show();
    take("progress-start");
    tab->restoredFileSize(5'000'000);
    tab->restoredPendingCount(12);
    tab->restoredPendingCount(5);
    take("progress-middle");
    click("restorePauseButton");
    EXPECT_TRUE(runUntil([until = QDeadlineTimer(1100)] { return until.hasExpired(); }));
    take("progress-paused");
}

} // namespace
} // namespace kelvane::tests
