#include "Platform/Desktop/ComputerName.h"
#include "Platform/Desktop/DesktopFileServices.h"
#include "Platform/Desktop/Opener.h"
#include "Platform/Desktop/RunningApplications.h"
#include "Tests/Harness/RunUntil.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <QDBusConnection>
#include <QDateTime>
#include <QLocale>
#include <gtest/gtest.h>

namespace kelvane {

TEST(Opener, HandsOverWhatIsToBeOpenedAndReportsWhatFails) {
    const tests::TemporaryFolder folder;
    const std::string program = folder.writeProgram(
        "opener", "#!/bin/sh\ncat >> " + (folder / "opened") + "; echo \"$#:$1\" >> " + (folder / "opened") +
                      "\ncase $1 in /tmp/9*) kill -9 $$;; /tmp/*) exit ${1#/tmp/};; esac\n");
    ASSERT_TRUE(std::freopen(folder.write("typed", "by a person").c_str(), "r", stdin));
    std::vector<std::string> reasons;
    const auto failed = [&](const std::string& reason) { reasons.push_back(reason); };
    DesktopOpener opener(program);
    opener.openURL("http://host/a b?c=d@e", failed);
    EXPECT_TRUE(tests::runUntil([&] { return folder.read("opened") == "1:http://host/a%20b?c=d@e\n"; }));
    for (const auto& [file, reason] : {std::pair("/tmp/2", std::string("no such file")),
                                       {"/tmp/3", "no application is set up to open it"},
                                       {"/tmp/4", program + " failed with status 4"},
                                       {"/tmp/127", "a program that " + program + " needs is not installed"},
                                       {"/tmp/9 $(x)", program + " was killed by signal 9"}}) {
        reasons.clear();
        opener.openFile(file, failed);
        ASSERT_TRUE(tests::runUntil([&] { return reasons.size() == 1; }));
        EXPECT_EQ(reasons[0], std::string("cannot open ") + file + ": " + reason);
    }
    for (const char* const wrong : {"", "host/page", "--help", "http://[bad"})
        opener.openURL(wrong, failed);
    opener.openFile("relative", failed);
    DesktopOpener missing(folder / "missing");
    missing.openURL("http://host", failed);
    EXPECT_EQ(reasons.size(), 1U); // never during the call
    ASSERT_TRUE(tests::runUntil([&] { return reasons.size() == 7; }));
    EXPECT_NE(reasons[6].find("No such file"), std::string::npos);
    EXPECT_EQ(folder.read("opened"),
              "1:http://host/a%20b?c=d@e\n1:/tmp/2\n1:/tmp/3\n1:/tmp/4\n1:/tmp/127\n1:/tmp/9 $(x)\n");
}

TEST(DesktopFileServices, TellsKindsPicturesAndDates) {
    const tests::TemporaryFolder folder;
    const std::string picture = R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 4 4"></svg>)";
    for (const char* const name : {"folder", "text-x-generic", "drive-harddisk", "image-x-generic"})
        folder.write(std::string("Resources/") + name + ".svg", picture);
    folder.write("Info.plist", "<plist><dict/></plist>");
    const LocalFileSystem files(Volumes("System", {{"Disk", folder / "Resources"}}));
    const SystemAccounts accounts(1); // as if every record were larger than usual
    EXPECT_EQ(accounts.userName(0).value_or("") + accounts.groupName(0).value_or(""), "rootroot");
    const Icons icons(std::make_shared<const Bundle>(folder.path()));
    const DesktopFileServices services(files, accounts, icons);
    EXPECT_EQ(services.kindOfExtension("png"), "PNG image");
    EXPECT_EQ(services.kindOfFolder(), "Folder");
    EXPECT_EQ(services.kindOfExtension("nothing-known"), "");
    EXPECT_EQ(services.kindOfExtension(""), "");
    const std::pair<IconHandle, const char*> expected[] = {
        {services.iconOfExtension("png"), "image-x-generic"},
        {services.iconOfExtension("nothing-known"), "text-x-generic"},
        {services.iconOfFile(folder / "Info.plist"), "text-x-generic"},
        {services.iconOfFile(folder.path()), "folder"},
        {services.iconOfFile("/"), "drive-harddisk"},
        {services.iconOfFile("/Volumes/Disk"), "drive-harddisk"},
        {icons.computer(), "computer"}, // no such icon, and no theme
    };
    for (const auto& [icon, name] : expected)
        EXPECT_EQ(icon, icons.named(name)) << name;
    EXPECT_FALSE(qIcon(services.iconOfFolder()).isNull());
    const QDateTime first = QDateTime::fromString("2001-01-01T00:00:01Z", Qt::ISODate).toLocalTime();
    EXPECT_EQ(services.dateAndTime(Date{1}), QLocale().toString(first, QLocale::ShortFormat).toStdString());
    const PlainFileServices plain(files, accounts, "no locale");
    EXPECT_EQ(plain.dateAndTime(Date{1.9}), first.toString("MM/dd/yy HH:mm:ss").toStdString());
    EXPECT_EQ(plain.dateAndTime(Date{-0.1}), first.addSecs(-2).toString("MM/dd/yy HH:mm:ss").toStdString());
    for (const FileServices* const each : std::initializer_list<const FileServices*>{&services, &plain}) {
        EXPECT_EQ(each->dateAndTime(Date{1e30}), "1e+30") << "no calendar counts these years";
        EXPECT_EQ(each->dateAndTime(Date{-1e30}), "-1e+30");
    }
    EXPECT_TRUE(qIcon(icons.named("nothing-known")).isNull());
}

TEST(ComputerName, IsTheLastPrettyNameOrElseTheHostName) {
    const tests::TemporaryFolder folder;
    const std::string host = QSysInfo::machineHostName().toStdString();
    const std::string key = "PRETTY_HOSTNAME=";
    for (const auto& [contents, name] :
         {std::pair("ICON_NAME=x\n" + key + "one\n" + key + "two\nX" + key + "three\n", std::string("two")),
          {key + R"("Ann's \"Box\""\ 'a\"b'c\)", R"(Ann's "Box" a\"bc\)"},
          {key + "''\n", host},
          {key + "\xff\n", host},
          {key + std::string(4096, 'x'), host}})
        EXPECT_EQ(computerName(folder.write("machine-info", contents)), name) << contents;
}

TEST(RunningApplications, AreNamesOnTheBusWhateverTheirCase) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    ASSERT_TRUE(bus.registerService("com.kelvane.Agent"));
    const std::vector<std::string> running = runningApplications();
    bus.unregisterService("com.kelvane.Agent");
    EXPECT_TRUE(isApplicationAmong(running, "com.KELVANE.agent"));
    for (const char* const other : {"com.kelvane.Agen", "com.kelvane.Agent2", ""})
        EXPECT_FALSE(isApplicationAmong(running, other)) << other;
    EXPECT_FALSE(isApplicationAmong(runningApplications(), "com.kelvane.agent"));
}

} // namespace kelvane
