#include "Platform/Desktop/ComputerName.h"
#include "PreferencePane/Info/InfoWindowController.h"
#include "PreferencePane/Info/InfoWindowRegistry.h"
#include "PreferencePane/Info/LocationItems.h"
#include "PreferencePane/Services/OneLineLabel.h"
#include "Support/FileSizeFormatter.h"
#include "Tests/Harness/PaneDouble.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <QComboBox>
#include <QHelpEvent>
#include <QTest>
#include <gtest/gtest.h>

namespace kelvane::tests {
namespace {

struct InfoWindow : testing::Test {
    static OneLineLabel& field(const KelvaneInfoWindowController& controller, const char* name) {
        return *controller.window()->findChild<OneLineLabel*>(name);
    }
    static QComboBox& where(const KelvaneInfoWindowController& controller) {
        return *controller.window()->findChild<QComboBox*>("whereField");
    }
    // Returns the window's texts by their accessible names.
    static std::map<std::string, std::string> said(const KelvaneInfoWindowController& controller) {
        std::map<std::string, std::string> texts;
        for (const auto* const label : controller.window()->findChildren<OneLineLabel*>())
            texts[label->accessibleDescription().toStdString()] = label->text().toStdString();
        texts["Title"] = controller.window()->windowTitle().toStdString();
        for (int item = 0; item < where(controller).count(); ++item)
            texts["Where"] += where(controller).itemText(item).toStdString() + ';';
        return texts;
    }
    static FileNodeRef fileAt(const std::string& path) {
        return KelvaneFileNode::createWithDictionary(Dictionary{
            {"fileName", "a.txt"}, {"displayName", "A"}, {"path", path}, {"size", 5'000'000'000U}});
    }
    void runPosted() { static_cast<ManualLoop&>(*prefs.mainLoop()).runPosted(); }

    PaneDouble prefs;
};

TEST_F(InfoWindow, TellsWhatIsKnownOfAFileAndNothingOfNone) {
    KelvaneInfoWindowController controller(prefs);
    EXPECT_FALSE(controller.window()->isVisible());
    prefs.disk.files["/home/ann/Documents"] = FileAttributes::Kind::Directory;
    const Date date{700'000'000};
    const FileNodeRef file = fileAt("/home/ann/Documents/a.txt");
    Dictionary entries = file->dictionary().dictionary();
    entries.set("version", 3);
    entries.set("backupDate", date);
    file->initWithDictionary(entries);
    controller.setFileNode(file);
    EXPECT_TRUE(controller.window()->isVisible());
    const auto shortSize =
        *FileSizeFormatter::sharedFileSizeAbbrevFormatter().stringFromNumber(5'000'000'000U);
    const std::map<std::string, std::string> expected{{"Title", "A Info"},
                                                      {"File name", "A"},
                                                      {"Kind", prefs.fileServices().kindOfExtension("txt")},
                                                      {"Short size", shortSize},
                                                      {"Size", "5000000000 bytes"},
                                                      {"Where", "Documents;ann;" + computerName() + ';'},
                                                      {"Backup date", prefs.fileServices().dateAndTime(date)},
                                                      {"File version", "3"}};
    EXPECT_EQ(said(controller), expected);
    controller.setFileNode(KelvaneFileNode::createWithDictionary(
        Dictionary{{"fileName", "Documents"}, {"path", "/home/ann/Documents"}, {"isDirectory", true}}));
    EXPECT_EQ(said(controller)["Kind"], prefs.fileServices().kindOfFolder()) << "and no disk";

    controller.closeInfoWindows();
    EXPECT_FALSE(controller.window()->isVisible());
    controller.setFileNode(nullptr);
    EXPECT_TRUE(controller.window()->isVisible());
    for (const auto& [name, text] : said(controller))
        EXPECT_EQ(text, "") << name;
    EXPECT_EQ(where(controller).count(), 0);
}

TEST_F(InfoWindow, NamesTheComputerAsItsSettingsDo) {
    const TemporaryFolder folder;
    const std::string settings = folder / "computer.plist";
    folder.write("Resources/en.lproj/Localizable.strings",
                 "<plist><dict><key>ConfigPlistPath</key><string>" + settings + "</string></dict></plist>");
    for (const char* const name : {"computer", "folder", "text-x-generic"})
        folder.write("Resources/" + (name + std::string(".svg")),
                     R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 4 4"></svg>)");
    const auto around = [](const std::string& key, const std::string& inside) {
        return "<dict><key>" + key + "</key>" + inside + "</dict>";
    };
    const std::string name = around("ComputerName", "<string>Ann's</string>");
    for (const auto& [list, shown] :
         {std::pair(around("System", around("System", name)), std::string("Ann's")),
          {around("System", name), computerName()},
          {name, computerName()}}) {
        folder.write("computer.plist", "<plist>" + list + "</plist>");
        PaneDouble pane(std::make_shared<Bundle>(folder.path()));
        KelvaneInfoWindowController controller(pane);
        controller.setFileNode(fileAt("/home/ann/a.txt"));
        ASSERT_EQ(where(controller).count(), 2);
        EXPECT_EQ(where(controller).itemText(1).toStdString(), shown);
        EXPECT_EQ(where(controller).itemIcon(0).cacheKey(), qIcon(pane.icons().folder()).cacheKey());
        EXPECT_EQ(where(controller).itemIcon(1).cacheKey(), qIcon(pane.icons().computer()).cacheKey());
        EXPECT_FALSE(where(controller).itemIcon(1).isNull());
    }
}

TEST_F(InfoWindow, SnapsItsLocationBackWhateverIsChosen) {
    KelvaneInfoWindowController controller(prefs);
    controller.setFileNode(fileAt("/home/ann/Documents/a.txt"));
    QTest::keyClick(&where(controller), Qt::Key_End);
    EXPECT_EQ(where(controller).currentIndex(), 0);
    QTest::keyClick(&where(controller), Qt::Key_Down);
    EXPECT_EQ(where(controller).currentIndex(), 0);
}

TEST_F(InfoWindow, ShowsALongOrStrangeNameAsOneLineAndAllOfItInATip) {
    KelvaneInfoWindowController controller(prefs);
    const FileNodeRef file = fileAt("/a.txt");
    const std::string name = "<b>Minutes</b>\nof\u202E " + std::string(200, 'x') + " 2024.odt";
    file->setDisplayName(name);
    controller.setFileNode(file);
    OneLineLabel& label = field(controller, "nameField");
    EXPECT_LT(controller.window()->width(), 600);
    EXPECT_TRUE(label.shownText().startsWith("<b>Minutes</b>\uFFFDof\uFFFD "))
        << label.shownText().toStdString();
    EXPECT_TRUE(label.shownText().contains(QChar(0x2026)));
    EXPECT_TRUE(label.shownText().endsWith("2024.odt"));
    EXPECT_EQ(label.text().toStdString(), name);
    EXPECT_TRUE(controller.window()->windowTitle().startsWith("<b>Minutes</b>\uFFFDof\uFFFD "));

    QHelpEvent asking(QEvent::ToolTip, {}, {});
    QCoreApplication::sendEvent(&label, &asking);
    EXPECT_TRUE(label.toolTip().contains("&lt;b&gt;Minutes&lt;/b&gt;")) << label.toolTip().toStdString();
    QCoreApplication::sendEvent(&field(controller, "kindField"), &asking);
    EXPECT_EQ(field(controller, "kindField").toolTip(), "");
}

TEST_F(InfoWindow, IsOneForEachFileOfTheRegistryUntilItIsClosed) {
    InfoWindowRegistry registry(prefs);
    const FileNodeRef file = fileAt("/a.txt");
    registry.showInfoWindowForFileNode(file);
    registry.showInfoWindowForFileNode(file);
    EXPECT_EQ(registry.controllers().size(), 1U);
    registry.showInfoWindowForFileNode(fileAt("/a.txt"));
    ASSERT_EQ(registry.controllers().size(), 2U);
    registry.ofTabs().setFileNode(file);
    const auto windows = prefs.mainView()->findChildren<QDialog*>();
    ASSERT_EQ(windows.size(), 3);
    const auto isOpen = [](const QDialog* window) { return window->isVisible(); };
    EXPECT_TRUE(std::ranges::all_of(windows, isOpen));

    registry.closeInfoWindows(); // like a pane that is about to be hidden
    EXPECT_TRUE(std::ranges::none_of(windows, isOpen));
    EXPECT_TRUE(registry.controllers().empty());
    runPosted();
    registry.ofTabs().setFileNode(file);
    EXPECT_TRUE(registry.ofTabs().window()->isVisible());

    registry.showInfoWindowForFileNode(file);
    const QPointer<QDialog> window = registry.controllers()[0]->window();
    QTest::keyClick(window, Qt::Key_Escape);
    EXPECT_TRUE(registry.controllers().empty());
    EXPECT_TRUE(window) << "until the event is over";
    // Requested again before that: a new window.
    registry.showInfoWindowForFileNode(file);
    runPosted();
    EXPECT_FALSE(window);
    ASSERT_EQ(registry.controllers().size(), 1U);
    EXPECT_TRUE(registry.controllers()[0]->window()->isVisible());
}

std::string shown(std::string_view path) {
    std::string lines;
    for (const LocationItem& item : locationItems(path, "box"))
        lines += item.title + (item.folder.empty() ? "" : "=" + item.folder) + ';';
    return lines;
}

TEST(LocationItems, AreTheFoldersFromTheInsideToTheComputer) {
    for (const auto& [path, items] : std::initializer_list<std::pair<const char*, const char*>>{
             {"/Users/ann/Documents/a.txt", "Documents=/Users/ann/Documents;ann=/Users/ann;box;"},
             {"/Users/ann", "box;"},
             {"/a.txt", "box;"},
             {"/", "box;"},
             {"/Volumes/Photos/Scans/", "Photos=/Volumes/Photos;box;"},
             {"", "--;"},
             {"a.txt", ""},
             {"notes/a.txt", "box;"},
         })
        EXPECT_EQ(shown(path), items) << path;
    EXPECT_EQ(locationItems("/Users/ann", "box")[0].kind, LocationItem::Kind::Computer);
    EXPECT_EQ(locationItems("", "box")[0].kind, LocationItem::Kind::Unknown);
}

} // namespace
} // namespace kelvane::tests
