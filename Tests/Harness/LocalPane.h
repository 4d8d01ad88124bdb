#pragma once

#include "Tests/Harness/PaneDouble.h"

#include <QVBoxLayout>

namespace kelvane::tests {

// A pane on the local disk, with one additional volume.
struct LocalPane : PaneDouble {
    LocalPane(std::shared_ptr<const Bundle> texts, std::shared_ptr<MainLoop> loop, Volumes volumes)
        : PaneDouble(std::move(texts), std::move(loop)), localDisk(std::move(volumes)) {
        for (QWidget* const widget : {mainView(), backupTab(), restoreTab()})
            (new QVBoxLayout(widget))->setContentsMargins(0, 0, 0, 0);
    }
    const FileServices& fileServices() const override { return services; }
    bool existsDriveMountedAtSVD() const override { return isDriveMountedAtSVD; }

    bool isDriveMountedAtSVD = false;
    const LocalFileSystem localDisk;
    const FakeAccounts localAccounts;
    const DesktopFileServices services{localDisk, localAccounts, icons()};
};

} // namespace kelvane::tests
