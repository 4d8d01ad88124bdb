#include "Tests/Backup/BackupTabTest.h"

#include "Common/FileNodeFlags.h"
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
        addFile("docs/Letters/2024/Landlord/Answer.pdf", false);
        for (const std::string name : {"docs", "docs/Letters", "photos"})
            daemon.changeWorld([&](DaemonWorld& world) {
                world.addFile("/Volumes/USB/" + name, true, 0, true);
                world.file("/Volumes/USB/docs/b.txt")->mutableDictionary().set("backupColor", 3);
                world.file("/Volumes/USB/" + name)->mutableDictionary().set("backupColor", 4);
            });
    }
    void take(const std::string& name) const { takePicture(*pane.mainView(), "backup-" + name); }
};

TEST_F(Pictures, OfAutomaticMode) {
    take("disconnected");
    daemon.changeWorld([](DaemonWorld& world) {
        for (const char* const name : {"docs/a.txt", "docs/deep/c.txt", "photos"})
            world.exclude(std::string("/Volumes/USB/") + name, true);
    });
    begin(true);
    take("automatic");
    table().selectRow(1);
    table().setFocus();
    take("automatic-selected");
    pane.isRecovering = true;
    changed();
    take("automatic-recover");
    pane.isRecovering = false;
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
    take("volumes");
    choose({"USB", "docs", "a.txt"});
    take("manual");
    choose({"b.txt"}, Qt::ControlModifier, 2);
    take("manual-two");
    choose({"Letters", "2024", "Landlord"}, {}, 2);
    take("manual-deep");
    pane.isRecovering = true;
    changed();
    take("manual-recover");
}

} // namespace
} // namespace kelvane::tests
