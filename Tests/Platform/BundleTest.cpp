#include "Platform/Bundle.h"
#include "Platform/PropertyListFile.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace kelvane {
namespace {

PropertyListReading readXML(const std::string& content) {
    const std::string text = "<plist version=\"1.0\">" + content + "</plist>";
    return readPropertyList(Data(text.begin(), text.end()));
}

std::string repeated(std::string_view part, int count) {
    std::string text;
    for (int i = 0; i < count; ++i)
        text += part;
    return text;
}

TEST(PropertyListFile, ReadsEveryKindOfXML) {
    const PropertyListReading reading = readXML(
        "<array><string>a&#13;\n&lt;\xC3\xA9</string><string/><integer>-5</integer><real>1.5</real><true/>"
        "<data>AP8=</data><date>2001-01-01T00:00:09Z</date><dict><key>k</key><array/></dict></array>");
    const Value expected =
        Array{"a\r\n<\xC3\xA9", "", -5, 1.5, true, Data{0, 255}, Date{9}, Dictionary{{"k", Array{}}}};
    EXPECT_EQ(reading.value, expected) << reading.error << reading.value.description();
}

TEST(PropertyListFile, RefusesHostileXMLInBoundedTime) {
    for (const std::string& content :
         {std::string("<dict><key>a</key><string>b</string>"), std::string("<string>\xFF</string>"),
          std::string("<string>&#xD800;</string>"), std::string("<dict><key>\xFF</key><true/></dict>"),
          "<string>a" + std::string(1, '\0') + "b</string>",
          repeated("<array>", deepestNesting + 1) + repeated("</array>", deepestNesting + 1),
          repeated("<array>", 100'000) + repeated("</array>", 100'000),
          repeated("<dict><key>k</key>", 1000) + repeated("</dict>", 1000),
          "<string>" + repeated("&amp;", 500'000) + "</string>"})
        EXPECT_FALSE(readXML(content).succeeded()) << content.substr(0, 60);
    EXPECT_EQ(readXML(repeated("<array>", deepestNesting) + repeated("</array>", deepestNesting)).error, "");
}

TEST(Bundle, GivesItsInformationTextsAndFiles) {
    const tests::TemporaryFolder folder;
    const auto write = [&](const std::string& name, const std::string& entries) {
        folder.write(name, "<plist><dict>" + entries + "</dict></plist>");
    };
    write("Info.plist", "<key>DaemonPath</key><string>/run/d</string>");
    write("Resources/en.lproj/Localizable.strings",
          "<key>Title</key><string>Backup</string><key>Empty</key><string/>");
    write("Resources/en.lproj/MarketNames.strings", "<key>Title</key><string>M</string>");
    folder.write("Resources/blue.svg", "<svg/>");
    folder.write("Helpers/notes", "");
    folder.writeProgram("Helpers/Enable", "#!/bin/sh\n");

    const Bundle bundle(folder.path());
    EXPECT_EQ(bundle.error(), "");
    EXPECT_EQ(bundle.information("DaemonPath").stringValue(), "/run/d");
    EXPECT_EQ(bundle.localizedString("Title", "else"), "Backup");
    EXPECT_EQ(bundle.localizedString("Title", "else", "MarketNames"), "M");
    EXPECT_EQ(bundle.localizedString("Empty", "else"), "");
    EXPECT_EQ(bundle.localizedString("Absent", "else"), "else");
    EXPECT_EQ(bundle.localizedString("Title", "else", "Absent"), "else");
    EXPECT_EQ(bundle.resourcePath("blue", "svg"), folder / "Resources/blue.svg");
    EXPECT_EQ(bundle.resourcePath("blue", "png"), std::nullopt);
    EXPECT_EQ(bundle.auxiliaryExecutable("Enable"), folder / "Helpers/Enable");
    EXPECT_EQ(bundle.auxiliaryExecutable("notes"), std::nullopt);
}

TEST(Bundle, IsEmptyAndSaysSoWhenItsFilesAreBroken) {
    const tests::TemporaryFolder folder;
    const std::string information = folder.write("Info.plist", "<plist><array/></plist>");
    const std::string table =
        folder.write("Resources/en.lproj/Localizable.strings", "<plist><dict><key>Title");
    const Bundle bundle(folder.path());
    EXPECT_TRUE(bundle.information("DaemonPath").isAbsent());
    EXPECT_EQ(bundle.localizedString("Title", "Backup"), "Backup");
    EXPECT_EQ(bundle.error(), "cannot read " + information + ": not a dictionary\ncannot read " + table +
                                  ": not a property list");
}

} // namespace
} // namespace kelvane
