#include "Tests/Backup/BackupTabTest.h"

#include "Tests/Harness/Pictures.h"

namespace kelvane::tests {
namespace {

using Pictures = BackupTabTest;

TEST_F(Pictures, OfItsViews) {
    if (!arePicturesWanted())
        GTEST_SKIP() << "KELVANE_PICTURES names no folder";
    const auto take = [this](const char* name) { takePicture(*pane.mainView(), name); };
    pane.mainView()->resize(760, 480);
    addFile("docs/Letters/2024/Landlord/A letter about the heating that never worked in winter.odt");
    daemon.changeWorld([](DaemonWorld& world) {
        world.file("/Volumes/USB/docs/b.txt")->mutableDictionary().set("backupColor", 3);
        world.addFile("/Volumes/USB/docs", true, 0, true);
        world.file("/Volumes/USB/docs")->mutableDictionary().set("backupColor", 4);
        world.exclude("/Volumes/USB/photos/p.jpg", true);
        for (int number = 1; number <= 30; ++number) {
            world.volumes.push_back("/Volumes/Disk " + std::to_string(number));
            world.addFile(world.volumes.back(), true, 0, number % 3 == 0);
        }
    });
    take("backup-disconnected");
    begin(true);
    table().selectRow(0);
    take("backup-automatic");
    pane.isAuthorized = false;
    changed();
    take("backup-automatic-locked");
    pane.isAuthorized = true;
    changed();
    click("autoManualButton");
    choose({"USB", "docs", "a.txt"});
    choose({"b.txt"}, Qt::ControlModifier, 2);
    take("backup-manual");
    choose({"Letters", "2024", "Landlord"}, {}, 2);
    pane.isRecovering = true;
    changed();
    take("backup-manual-deep-recover");
}

} // namespace
} // namespace kelvane::tests
