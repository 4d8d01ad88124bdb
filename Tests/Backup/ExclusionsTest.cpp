#include "PreferencePane/Backup/ChoosePanel.h"
#include "Tests/Backup/BackupTabTest.h"

#include <QDropEvent>
#include <QLineEdit>
#include <QMimeData>
#include <QTreeView>

namespace kelvane::tests {
namespace {

const std::vector<const char*> segments{"addSegment", "removeSegment", "infoSegment"};

class ExclusionsTest : public BackupTabTest {
protected:
    void beginWithExclusions(const Paths& names) {
        daemon.changeWorld([&](DaemonWorld& world) {
            for (const std::string& name : names)
                world.exclude("/Volumes/USB/" + name, true);
        });
        begin(true);
    }
    [[nodiscard]] Paths rows() const {
        Paths found;
        const QAbstractItemModel& model = *table().model();
        for (int row = 0; row < model.rowCount(); ++row)
            found.push_back(model.index(row, 0).data().toString().toStdString());
        return found;
    }
    void select(const std::vector<int>& selected) const {
        table().clearSelection();
        for (const int row : selected)
            table().selectionModel()->select(table().model()->index(row, 0),
                                             QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }
    // Returns false when the drop is refused.
    bool drop(const QByteArray& format, const QByteArray& contents) const {
        QMimeData data;
        data.setData(format, contents);
        const QPoint place = table().viewport()->rect().center();
        const Qt::DropActions actions = Qt::CopyAction | Qt::MoveAction;
        const auto picture = [this] { return table().viewport()->grab().toImage(); };
        const QImage before = picture();
        QDragEnterEvent enter(place, actions, &data, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(table().viewport(), &enter);
        EXPECT_EQ(picture() != before, enter.isAccepted()) << "a frame shows where files may be dropped";
        QDragMoveEvent move(place, actions, &data, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(table().viewport(), &move);
        EXPECT_EQ(move.isAccepted(), enter.isAccepted());
        QDragLeaveEvent leave;
        QCoreApplication::sendEvent(table().viewport(), &leave);
        EXPECT_EQ(picture(), before);
        QCoreApplication::sendEvent(table().viewport(), &enter);
        QDropEvent drop(place, actions, &data, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(table().viewport(), &drop);
        EXPECT_EQ(enter.isAccepted(), drop.isAccepted());
        return drop.isAccepted() && drop.dropAction() == Qt::CopyAction;
    }
    [[nodiscard]] QByteArray address(const std::string& path) const {
        return QUrl::fromLocalFile(QString::fromStdString(path)).toEncoded() + "\r\n";
    }
};

TEST_F(ExclusionsTest, AreShownWithNameOwnerAndPath) {
    daemon.changeWorld([](DaemonWorld& world) {
        world.file("/Volumes/USB/docs/b.txt")->mutableDictionary().set("uid", 1U);
    });
    beginWithExclusions({"docs/a.txt", "docs/b.txt"});
    EXPECT_EQ(rows(), (Paths{"a.txt", "b.txt"}));
    const QAbstractItemModel& model = *table().model();
    EXPECT_EQ(model.index(1, 1).data().toString(), "joe");
    EXPECT_EQ(model.index(0, 1).data().toString(), "1000"); // without a name
    EXPECT_TRUE(model.index(0, 1).data(Qt::ToolTipRole).toString().contains("/Volumes/USB/docs/a.txt"));

    select({1});
    daemon.changeWorld([](DaemonWorld& world) { world.exclude("/Volumes/USB/docs/a.txt", false); });
    EXPECT_EQ(rows().size(), 2);
    tab->folderChanged("/");
    EXPECT_EQ(rows(), Paths{"b.txt"});
    EXPECT_EQ(table().selectedNodes().size(), 1); // the same item
    daemon.answer("excludedFiles:", Value());
    tab->folderChanged("/");
    EXPECT_EQ(rows(), Paths{"b.txt"}); // no answer changes nothing
}

TEST_F(ExclusionsTest, AreRemovedAtTheDaemonAndShownUntilItSaysSo) {
    beginWithExclusions({"docs/a.txt", "docs/b.txt", "photos/p.jpg"});
    select({0, 2});
    EXPECT_EQ(enabled(segments), "addSegment removeSegment");
    daemon.forgetCalls();
    QTest::keyClick(&table(), Qt::Key_Delete);
    EXPECT_EQ(asked("unexcludeFileFromBackup:"),
              (Paths{"/Volumes/USB/docs/a.txt", "/Volumes/USB/photos/p.jpg"}));
    EXPECT_EQ(rows().size(), 3);
    tab->folderChanged("");
    EXPECT_EQ(rows(), Paths{"b.txt"});

    select({0});
    pane.isRecovering = true;
    changed();
    EXPECT_EQ(enabled(segments), "infoSegment");
    QTest::keyClick(&table(), Qt::Key_Delete);
    QTest::keyClick(&table(), Qt::Key_Insert);
    EXPECT_EQ(asked("unexcludeFileFromBackup:"), Paths());
    EXPECT_EQ(pane.mainView()->findChild<ChoosePanel*>(), nullptr);
    click("infoSegment");
    ASSERT_TRUE(info.fileNode());
    EXPECT_EQ(info.fileNode()->path(), "/Volumes/USB/docs/b.txt");
}

TEST_F(ExclusionsTest, AreDroppedAsRealPathsAndNeverAsVolumes) {
    begin(true);
    daemon.forgetCalls();
    EXPECT_TRUE(drop("text/uri-list", address(folder / "USB") + address(folder / "USB/docs") +
                                          address("/home/nobody/x") + "trash:///y\r\n"));
    EXPECT_EQ(asked("excludeFileFromBackup:"), (Paths{"/Volumes/USB/docs", "/home/nobody/x"}));
    EXPECT_TRUE(drop("XdndDirectSave0", "promised.txt"));
    EXPECT_FALSE(drop("text/plain", "/home/joe"));
    pane.isRecovering = true;
    EXPECT_FALSE(drop("text/uri-list", address(folder / "USB/docs")));
    pane.isRecovering = false;
    pane.isAuthorized = false;
    EXPECT_FALSE(drop("text/uri-list", address(folder / "USB/docs"))) << "locked";
    EXPECT_EQ(asked("excludeFileFromBackup:"), Paths());
}

TEST_F(ExclusionsTest, AreChosenInAPanelThatTakesFilesAndFolders) {
    begin(true);
    std::filesystem::create_symlink("photos/p.jpg", folder / "USB/link");
    daemon.forgetCalls();
    QTest::keyClick(&table(), Qt::Key_Insert);
    auto* const panel = pane.mainView()->findChild<ChoosePanel*>();
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(panel->windowModality(), Qt::WindowModal);
    panel->setDirectory(QString::fromStdString(folder / "USB"));
    auto& list = *panel->findChild<QListView*>("listView");
    const auto count = [&] { return list.model()->rowCount(list.rootIndex()); };
    ASSERT_TRUE(QTest::qWaitFor([&] { return count() == 3; }));
    // The field shows what will be chosen.
    panel->findChild<QTreeView*>()->setFocus();
    const auto choose = [&](const QString& name, QItemSelectionModel::SelectionFlag command) {
        const QModelIndexList found = list.model()->match(list.model()->index(0, 0, list.rootIndex()),
                                                          Qt::DisplayRole, name, 1, Qt::MatchExactly);
        list.selectionModel()->select(found.at(0), command | QItemSelectionModel::Rows);
        return panel->findChild<QLineEdit*>()->text();
    };
    EXPECT_EQ(choose("link", QItemSelectionModel::ClearAndSelect), "link");
    EXPECT_EQ(choose("docs", QItemSelectionModel::ClearAndSelect), "docs");
    EXPECT_EQ(choose("link", QItemSelectionModel::Select), "\"docs\" \"link\"");
    EXPECT_EQ(choose("docs", QItemSelectionModel::Deselect), "link");
    EXPECT_EQ(choose("link", QItemSelectionModel::Deselect), "");
    list.selectAll();
    const auto buttons = panel->findChildren<QAbstractButton*>();
    const auto select = std::ranges::find(buttons, "Select", &QAbstractButton::text);
    ASSERT_NE(select, buttons.end());
    QTest::mouseClick(*select, Qt::LeftButton);
    Paths chosen = asked("excludeFileFromBackup:");
    std::ranges::sort(chosen);
    EXPECT_EQ(chosen, (Paths{"/Volumes/USB/docs", "/Volumes/USB/photos", "/Volumes/USB/photos/p.jpg"}));
}

using ViewsTest = BackupTabTest;

TEST_F(ViewsTest, FollowTheLinkAndTheMode) {
    EXPECT_EQ(shownView(), "disabledBackupView");
    begin(true);
    EXPECT_EQ(shownView(), "autoBackupView");
    EXPECT_EQ(enabled({"removeSegment", "infoSegment"}), "") << "nothing is selected";
    setAutomatic(false);
    setState("serviceState", 6U);
    EXPECT_EQ(shownView(), "manualBackupView");
    click("manualAutoButton");
    EXPECT_EQ(shownView(), "autoBackupView");
    EXPECT_TRUE(daemon.waitForCalls("setAutomaticMode:"));
    EXPECT_TRUE(daemon.world().values["automaticMode"].boolValue());

    click("addSegment");
    EXPECT_NE(pane.mainView()->findChild<ChoosePanel*>(), nullptr);
    loseDaemon();
    EXPECT_EQ(shownView(), "disabledBackupView");
    EXPECT_FALSE(pane.mainView()->findChild<ChoosePanel*>()->isVisible());
    // The mode is unknown now.
    pane.post(KelvanePrefPaneDaemonStateChangedNotification);
    ASSERT_TRUE(daemon.start());
    loop->advance(1s);
    EXPECT_EQ(shownView(), "autoBackupView");
}

TEST_F(ViewsTest, StayInManualModeForAnAccountWithAQuota) {
    daemon.setState("isQuotaLimited", true);
    begin(false);
    EXPECT_FALSE(control("manualAutoButton").isVisibleTo(pane.mainView()));
    control<QAbstractButton>("manualAutoButton").click();
    EXPECT_EQ(shownView(), "manualBackupView");
    EXPECT_EQ(daemon.callCount("setAutomaticMode:"), 0);
    // Switching to manual mode is allowed.
    setAutomatic(true);
    setState("serviceState", 7U);
    EXPECT_EQ(shownView(), "autoBackupView");
    click("autoManualButton");
    EXPECT_EQ(shownView(), "manualBackupView");
    EXPECT_TRUE(daemon.waitForCalls("setAutomaticMode:"));
    EXPECT_FALSE(daemon.world().values["automaticMode"].boolValue());
    setState("isQuotaLimited", false);
    EXPECT_TRUE(control("manualAutoButton").isVisibleTo(pane.mainView()));
}

TEST_F(ViewsTest, SayWhatCanBeDone) {
    // The last field is the expected start of the context message; null means the mode's normal text.
    const std::tuple<bool, bool, bool, bool, const char*, const char*> cases[] = {
        {false, true, true, true, "", "You can't make"},
        {false, true, false, true, "addSegment autoManualButton", nullptr},
        {true, true, false, true, "addSegment autoManualButton manualToggleButton manualAutoButton", nullptr},
        {true, true, false, false, "addSegment autoManualButton", nullptr},
        {true, true, true, true, "", "You can't make"},
        {true, false, false, true, "", "You can't make"}, // unchanged
    };
    for (const auto& [isConnected, isAuthorized, isRecovering, isEnabled, controls, line] : cases) {
        if (isConnected && !pane.connected())
            begin(true);
        pane.isAuthorized = isAuthorized;
        pane.isRecovering = isRecovering;
        tab->enableTabItems(isEnabled);
        EXPECT_EQ(enabled({"addSegment", "autoManualButton", "manualToggleButton", "manualAutoButton"}),
                  controls);
        EXPECT_EQ(pane.flags().manualToggleButtonEnable, control("manualToggleButton").isEnabled());
        const std::pair<const char*, const char*> lines[] = {
            {"currentAutoBackupViewContextMsg", "To exclude"},
            {"currentManualBackupViewContextMsg", "To include"}};
        for (const auto& [field, usual] : lines)
            EXPECT_TRUE(text(field).starts_with(line ? line : usual)) << field << controls;
    }
}

TEST_F(ViewsTest, SurviveALinkThatIsLostInTheMiddle) {
    daemon.breakLinkAt("excludedFiles:");
    ASSERT_TRUE(daemon.start());
    pane.state->onBegin();
    waitForLoss();
    EXPECT_EQ(shownView(), "disabledBackupView");
    EXPECT_FALSE(control("manualToggleButton").isEnabled());
}

} // namespace
} // namespace kelvane::tests
