#include "Platform/Files/Volumes.h"
#include "Tests/Tools/KelvanectlFixture.h"

#include <cerrno>
#include <nlohmann/json.hpp>

namespace kelvane::tests {
namespace {

using Json = nlohmann::ordered_json;

class KelvanectlPaths : public Kelvanectl {
protected:
    void SetUp() override {
        Kelvanectl::SetUp();
        daemon_.changeWorld([this](DaemonWorld& world) {
            world.bootVolume = volumes_.bootVolume().name;
            world.addFile("/home", true, 1, true);
            world.addFile("/home/\xe6\x97\xa5\xe6\x9c\xac", true, 20, false);
            world.addFile("/home/\xe6\x97\xa5\xe6\x9c\xac/x\x1b[2J\n\xc2\x9b\xe2\x80\xae\\x0a", false,
                          6442450944, true);
            world.addFile("/home/b", false, 7, true);
            world.file("/home/b")->mutableDictionary().set("backupColor", 9);
            world.file("/home/b")->mutableDictionary().set("state", "Excluded: rule");
            world.files.push_back(Dictionary{{"path", "/home/"}, {"isDirectory", true}}); // without a name
        });
    }
    [[nodiscard]] std::string onVolume(const std::string& path) const { return volumes_.volumePath(path); }

    const Volumes volumes_ = Volumes::current();
};

TEST_F(KelvanectlPaths, ItemsStandInColumnsAndNamesGiveTheTerminalNoCommands) {
    EXPECT_EQ(run({"children", "/home", "--depth", "2"}).output,
              "State             Size  Backed up         Name\n"
              "Not backed up        -  never             \xe6\x97\xa5\xe6\x9c\xac/\n"
              "Backed up      6.00 GB  2025-01-02 03:04    "
              "x\\x1b[2J\\x0a\\xc2\\x9b\\xe2\\x80\\xae\\x5cx0a\n"
              "Excluded       7 bytes  2025-01-02 03:04  b\n");
    EXPECT_EQ(run({"ls", "-l", "/home/b"}).output,
              "State           Size  Backed up         Flags            Name\n"
              "Excluded: rule     7  2025-01-02 03:04  Backup,BackedUp  b\n");

    daemon_.answer("dictionaryForPath:withDirSizes:",
                   plist(R"({"fileName": "d", "backupFlags": 53, "size": 1})"));
    EXPECT_TRUE(run({"ls", "-l", "/d"})
                    .output.ends_with("\n-         1  never      Priority=5,Backup,BackedUp  d\n"));
    daemon_.answerAsUsual("dictionaryForPath:withDirSizes:");

    const std::string text = run({"--json", "children", "/home", "--depth", "2"}).output;
    EXPECT_EQ(text.find_first_of("\x1b\x9b"), std::string::npos) << text;
    const Json json = Json::parse(text);
    ASSERT_EQ(json.size(), 3U);
    EXPECT_EQ(json[1]["path"], "/home/\xe6\x97\xa5\xe6\x9c\xac/x\x1b[2J\n\xc2\x9b\xe2\x80\xae\\x0a");
    EXPECT_EQ(json[1]["backupDate"]["$date"], "2025-01-02T03:04:05Z");
    EXPECT_EQ(Json::parse(run({"ls", "/home", "--json"}).output), Json::array({json[0], json[2]}));
}

TEST_F(KelvanectlPaths, InfoReadsEveryField) {
    daemon_.answer("dictionaryForPath:withDirSizes:",
                   plist(R"({"fileName": "d", "displayName": "D\n", "isDirectory": true, "version": 3,
                             "state": "s", "size": 1536, "backupFlags": 131125, "totalCount": 5})"));
    EXPECT_EQ(run({"info", "/home", "--dir-sizes"}).output,
              "Name            d\nDisplay name    D\\x0a\nPath            /home\nFolder          yes\nKind   "
              "         Folder\nSize            1536 bytes (1.50 KB)\n"
              "Files           5\nOwner           root (0)\nGroup           root (0)\nBackup date     never\n"
              "Version         3\nState           s\nColour          Backup_Color_Undefined (0)\n"
              "Backup flags    0x00020035 : Backup_Priority (5) Backup_Backup Backup_BackedUp "
              "Backup_No_Folder Backup_Folder_Exclude \nSimple flags    0x00000000 : Backup_Simple_None\n");
    EXPECT_EQ(daemon_.calls().front().arguments, (Array{onVolume("/home"), 1}));
    EXPECT_EQ(Json::parse(run({"info", "/", "--json"}).output)["texts"]["kind"], "Disk");
}

TEST_F(KelvanectlPaths, TheDaemonIsAskedBelowTheVolumesName) {
    std::filesystem::create_directories(folder_ / "real/deep");
    std::filesystem::create_directory_symlink("real/deep", folder_ / "link");
    const std::string here = std::filesystem::current_path();
    const std::pair<std::string, std::string> cases[] = {
        {"/", "/"},
        {"//home/./b/", "/home/b"},
        {"x", here + "/x"},
        {"x/..", here},
        {folder_ / "link", folder_ / "link"},
        {folder_ / "link/../f", folder_ / "real/f"},
        {onVolume("/home/b"), "/home/b"},
        {"/a\uFFFDAAb", "/a\uFFFDAAb"}, // the printed form of a name with the byte AA
        {folder_.write("a\uFFFDAAb", ""),
         folder_ / "a\uFFFDEF\uFFFDBF\uFFFDBDAAb"}, // a file of just this name
        {"/Volumes/no such volume/a/../b", "/Volumes/no such volume/b"}};
    for (const auto& [typed, asked] : cases) {
        daemon_.forgetCalls();
        EXPECT_NE(run({"info", typed}).status, 1);
        EXPECT_EQ(daemon_.calls().front().arguments[0], onVolume(asked)) << typed;
    }
}

TEST_F(KelvanectlPaths, RulesChangeWhatTheDaemonBacksUpAndSayWhatIsNotDone) {
    expectFailure(run({"exclude", "add", "/nowhere", "/home/b"}), 2,
                  "kelvanectl: /nowhere: the daemon does not");
    EXPECT_EQ(run({"exclude", "list"}).output, "State        Size  Backed up         Name\n"
                                               "Excluded  7 bytes  2025-01-02 03:04  /home/b\n");
    EXPECT_EQ(run({"exclude", "remove", "/home/b"}).status, 0);
    EXPECT_EQ(run({"exclude", "list"}).output, "");
    const std::pair<std::uint32_t, std::string> refusals[] = {
        {ENOENT, "no such file"}, {ENOSPC, "too many rules"}, {EPERM, "refuses it: Operation not permitted"}};
    for (const auto& [code, reason] : refusals) {
        daemon_.answer("excludeFileFromBackup:", code);
        expectFailure(run({"exclude", "add", "/home/b"}), 2, "/home/b: ");
        expectFailure(run({"exclude", "add", "/home/b"}), 2, reason);
    }
    daemon_.answer("unexcludeFileFromBackup:", std::uint32_t{ENOENT});
    expectFailure(run({"exclude", "remove", "/home/b"}), 2, "/home/b: it is not excluded");

    expectFailure(run({"include", "add", "/nowhere"}), 2, "does not know this path");
    EXPECT_EQ(daemon_.callCount("addFileToBackup:"), 0U);
    const ChildProgram::Result result = run({"--json", "include", "remove", "/nowhere", "/home/b"});
    expectFailure(result, 2, "does not know this path");
    EXPECT_EQ(daemon_.callCount("removeFileFromBackup:"), 2U); // deleted files may still be marked
    EXPECT_EQ(Json::parse(result.output)[0]["done"], false);
    EXPECT_EQ(Json::parse(result.output)[1], Json({{"path", onVolume("/home/b")}, {"done", true}}));
    EXPECT_NE(run({"ls", "-l", "/home/b"}).output.find("  BackedUp  b\n"), std::string::npos);
    EXPECT_EQ(run({"include", "add", "/home/b"}).status, 0);
    EXPECT_NE(run({"ls", "-l", "/home/b"}).output.find("  Backup,BackedUp  b\n"), std::string::npos);
}

// The path of a file with an asterisk in its name is taken literally.
TEST_F(KelvanectlPaths, APatternStandsForWhatMatchesIt) {
    for (const char* const name : {"a.iso", "b.ISO", "*.txt", "c.txt", "sub/d.iso"}) {
        folder_.write(name, name);
        daemon_.changeWorld([&](DaemonWorld& world) { world.addFile(folder_ / name, false, 1, true); });
    }
    const auto excluded = [&](const Words& patterns, const char* action = "add") {
        daemon_.forgetCalls();
        Words words{"exclude", action};
        words.insert(words.end(), patterns.begin(), patterns.end());
        const ChildProgram::Result result = run(words);
        return result.output + result.errors;
    };
    const std::string note = "Excluded the paths above; files that match later are not excluded.\n";
    EXPECT_EQ(excluded({folder_ / "*.iso"}), (folder_ / "a.iso\n") + (folder_ / "b.ISO\n") + note);
    EXPECT_EQ(excluded({folder_ / "**.iso"}),
              (folder_ / "a.iso\n") + (folder_ / "b.ISO\n") + (folder_ / "sub/d.iso\n") + note);
    EXPECT_EQ(excluded({folder_ / "*.txt"}), "");
    EXPECT_EQ(daemon_.calls().front().arguments, Array{onVolume(folder_ / "*.txt")});
    EXPECT_EQ(excluded({folder_ / "*.pdf"}),
              "kelvanectl: " + (folder_ / "*.pdf: there is no file or folder that matches\n"));
    EXPECT_EQ(excluded({folder_ / "b*"}, "remove"), folder_ / "b.ISO\n");
    EXPECT_EQ(excluded({folder_ / "b*"}, "remove"),
              "kelvanectl: " + (folder_ / "b*: no excluded path matches\n"));
}

TEST_F(KelvanectlPaths, CompletesCommandsOptionsAndWhatTheDaemonKnows) {
    daemon_.setState("extensions", Array{"alerts"});
    daemon_.setState("alerts", plist(R"([{"id": "gone", "title": "Many files", "actions": ["keep:x"]}])"));
    std::filesystem::create_directories(folder_ / "place/in");
    std::ofstream(folder_ / "place/file") << "x";
    daemon_.answer("excludedFiles:", Array{Dictionary{{"path", onVolume("/home/b")}}});
    const std::string folder = "/home/\xe6\x97\xa5\xe6\x9c\xac";
    const std::pair<std::string, std::string> cases[] = {
        {"al", "alert\tList alerts, or perform an action of one\n"},
        {"--json exclude r", "remove\tBack up excluded files and folders again\n"},
        {"mode paused --un", "--until\tUntil this time, such as 18:00 or \"2025-01-31 18:00\"\n"},
        {"ls /ho", "/home/\n"},
        {"restore --wait '/home/b", "/home/b\tExcluded: rule\n"},
        {"restore /x /home/\xe6", folder + "/\n"},
        {"ls /home /ho", ""}, // the command takes one path
        {"restore --to " + (folder_ / "place/"), (folder_ / "place/in/\n")},
        {"restore --to=" + (folder_ / "place/"), "--to=" + (folder_ / "place/in/\n")},
        {"decode " + (folder_ / "place/f"), folder_ / "place/file\n"},
        {"alert ", "gone\tMany files\n"},
        {"alert gone ", "keep\n"},
        {"alert gone keep ", ""},
        {"exclude remove ", "/home/b\n"},
        {"exclude add \"/x\" --wait /ho\\me/", folder + "/\n/home/b\tExcluded: rule\n"},
        {"ls -- /ho", "/home/\n"},
        {"ls -- -", ""},
        {"ls --daemon=" + folder_.path() + " /ho", ""},
        {"--daemon " + socket_ + " ls /ho", "/home/\n"},
        {"call setServ", "setServiceState:\n"},
        {"help bac", "backup\tStart a backup\n"},
        {"complete ", ""}};
    for (const auto& [typed, offered] : cases)
        EXPECT_EQ(run({"complete", "--", "kelvanectl " + typed}).output, offered) << typed;
    EXPECT_EQ(run({"complete", "--breaks", "=:", "--", "kelvanectl call setFileTypeToggle:to"}).output,
              "toggle:\n");
    daemon_.stop();
    const ChildProgram::Result result = run({"complete", "--", "kelvanectl ls /ho"});
    EXPECT_EQ(result.output + result.errors, "");
}

// In a Turkish locale, built here because few machines have it, the lower case of I is not i.
TEST_F(KelvanectlPaths, PatternsAreReadAsTheLocaleOfTheUserHasIt) {
    const std::string build = "localedef -i tr_TR -f UTF-8 " + (folder_ / "tr_TR.UTF-8") + " 2>&1";
    ASSERT_EQ(std::system(build.c_str()), 0) << build; // NOLINT(cert-env33-c)
    environment_.push_back("LOCPATH=" + folder_.path());
    for (const auto& [locale, answer, date] : {std::tuple("C.UTF-8", "yes", "2025-01-02 03:04  b"),
                                               {"tr_TR.UTF-8", "no ", "02-01-2025 03:04:05  b"}}) {
        environment_.push_back(std::string("LC_ALL=") + locale);
        EXPECT_EQ(run({"match", "TITLE", "title"}).output, std::string(answer) + "  title\n");
        EXPECT_NE(run({"ls", "/home/b"}).output.find(date), std::string::npos);
        environment_.pop_back();
    }
}

TEST_F(KelvanectlPaths, WordsInBracketsAreNoLists) {
    const Words texts{"[a,b]", "[]", "[", "[a", "a,b", "\x01[a]"};
    Words words{"match", "[a,b]"};
    words.insert(words.end(), texts.begin(), texts.end());
    EXPECT_EQ(run(words).output, "yes  [a,b]\nno   []\nno   [\nno   [a\nno   a,b\nno   \\x01[a]\n");
    expectFailure(run({"exclude", "add", "[a,b]"}), 2, "/[a,b]: the daemon does not know this path");
}

// An incomplete listing must not be printed as a complete one.
TEST_F(KelvanectlPaths, AnUnknownPathIsWrongUsageAndALostDaemonIsNot) {
    expectFailure(run({"ls", "/nowhere"}), 2, "does not know this path");
    daemon_.breakLinkAt("childrenDictionariesForPath:", 1);
    const ChildProgram::Result result = run({"children", "/home", "--depth", "3"});
    expectFailure(result, 1, "was lost");
    EXPECT_EQ(result.output, "");
    for (const auto& [words, selector] :
         {std::pair(Words{"info", "/home"}, "dictionaryForPath:withDirSizes:"),
          {{"exclude", "list"}, "excludedFiles:"},
          {{"alert"}, "daemonState"},
          {{"mode", "paused"}, "setEnabled:"}}) {
        SCOPED_TRACE(selector);
        daemon_.breakLinkAt(selector);
        expectFailure(run(words), 1, "was lost");
    }
}

} // namespace
} // namespace kelvane::tests
