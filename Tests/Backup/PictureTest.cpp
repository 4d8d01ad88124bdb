#include "Tests/Backup/BackupTabTest.h"

#include "Tests/Harness/Pictures.h"

namespace kelvane::tests {
namespace {

class Pictures : public BackupTabTest {
protected:
    void SetUp() override {
        if (!arePicturesWanted())
            GTEST_SKIP() << "KELVANE_PICTURES names no folder";
        pane.mainView()->resize(760, 480);
        addFile("docs/Letters/2024/Landlord/A letter about the heating that never worked in winter.odt");
        daemon.changeWorld([](DaemonWorld& world) {
            world.file("/Volumes/USB/docs/b.txt")->mutableDictionary().set("backupColor", 3);
            world.addFile("/Volumes/USB/docs", true, 0, true);
            world.file("/Volumes/USB/docs")->mutableDictionary().set("backupColor", 4);
            world.exclude("/Volumes/USB/photos/p.jpg", true);
        });
    }
    void take(const std::string& name) const { takePicture(*pane.mainView(), "backup-" + name); }
};

TEST_F(Pictures, OfAutomaticMode) {
    take("disconnected");
    begin(true);
    table().selectRow(0);
    take("automatic");
    pane.isAuthorized = false;
    changed();
    take("automatic-locked");
}

TEST_F(Pictures, OfManualMode) {
    daemon.changeWorld([](DaemonWorld& world) {
        for (int number = 1; number <= 30; ++number) {
            world.volumes.push_back("/Volumes/Disk " + std::to_string(number));
            world.addFile(world.volumes.back(), true, 0, number % 3 == 0);
        }
    });
    begin(false);
    choose({"USB", "docs", "a.txt"});
    choose({"b.txt"}, Qt::ControlModifier, 2);
    take("manual");
    choose({"Letters", "2024", "Landlord"}, {}, 2);
    take("manual-deep");
    pane.isRecovering = true;
    changed();
    take("manual-recover");
}

} // namespace
} // namespace kelvane::tests
