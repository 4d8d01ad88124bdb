#include "Common/FileNode/FileNode.h"
#include "Common/FileNode/FileNodeProxy.h"
#include "Common/KelvProxy.h"
#include "Common/Protocols.h"
#include "Foundation/Format.h"
#include "Tests/Common/FakeFileServices.h"

#include <gtest/gtest.h>

namespace kelvane::tests {
namespace {

TEST(FileNode, KnowsItsKindAndItsIcon) {
    constexpr auto file = FileAttributes::Kind::File;
    constexpr auto link = FileAttributes::Kind::SymbolicLink;
    FakeFileServices services;
    services.disk.files = {{"/link", link}, {"/link.txt", link}, {"/x", file}, {"/plain", file}};
    const std::tuple<std::string_view, bool, std::string_view, std::string_view> cases[] = {
        {"/a.txt", false, "text", "txt"},  {"/link.txt", false, "text", "file /link.txt"},
        {"/x", false, "", "file /x"},      {"/link", false, "Alias", "file /link"},
        {"/gone.bin", false, "", "bin"},   {"/plain", true, "disk", "folder"},
        {"/Volumes/D", false, "", "disk"}, {"/Volumes/D", true, "disk", "folder"}};
    for (const auto& [path, isDirectory, kind, icon] : cases) {
        const FileNodeRef node = KelvaneFileNode::create(path.substr(path.rfind('/') + 1), isDirectory);
        node->setPath(path);
        EXPECT_EQ(node->kind(services), kind) << path;
        const IconHandle image = node->image(services);
        EXPECT_EQ(dynamic_cast<const NamedIcon&>(*image).name, icon);
        EXPECT_EQ(node->image(services), image) << "fetched once";
        node->flush();
        EXPECT_NE(node->image(services), image);
    }
    EXPECT_EQ(KelvaneFileNode::create("noextension", false)->image(services), nullptr);

    const FileNodeRef folder = KelvaneFileNode::create("a.txt", true);
    KelvaneFileNode::create("/", true)->addChild(folder);
    EXPECT_EQ(folder->kind(services), "folder") << "its volume was released, but it is not a volume itself";

    // A node created by path has no parent.
    for (const auto& [path, kind] : {std::pair("/", "disk"),
                                     {"/Volumes/D", "disk"},
                                     {"/Volumes/D/x", "folder"},
                                     {"/x", "folder"},
                                     {"", "folder"}}) {
        const FileNodeRef node = KelvaneFileNode::create("x", true);
        node->setPath(path);
        EXPECT_EQ(node->kindByPath(services), kind) << path;
    }
    EXPECT_EQ(folder->backupDateString(services), "Never");
    folder->setBackupDate(Date{1});
    EXPECT_EQ(folder->backupDateString(services), "a date");
}

TEST(FileNode, KeepsThePathThatAParentGaveIt) {
    FileNodeRef root = KelvaneFileNode::create("/", true);
    root->setPath("/");
    const FileNodeRef file = KelvaneFileNode::create("a", false);
    file->setParent(root);
    EXPECT_EQ(file->parent(), root);
    root.reset();
    EXPECT_EQ(file->path(), "/a");
}

const std::pair<std::uint32_t, bool (KelvaneFileNode::*)() const> questions[] = {
    {0x10, &KelvaneFileNode::isBackup},
    {0x40, &KelvaneFileNode::isExcluded},
    {0x400, &KelvaneFileNode::isNotActive},
    {0x800, &KelvaneFileNode::isFolder},
    {0x1000, &KelvaneFileNode::isMissing}};

// A changed number of a flag shows as another name, or none, for the number that a daemon sends.
TEST(FileNode, HasTheNumbersAndNamesOfFlagsThatADaemonUses) {
    const FileNodeRef node = KelvaneFileNode::create();
    EXPECT_EQ(node->backupFlagsString(), "0x00000000 : Backup_Undefined");
    EXPECT_EQ(node->simpleFlagsString(), "0x00000000 : Backup_Simple_None");
    std::string backup, simple;
    for (std::uint32_t flag = 1; flag != 0; flag <<= 1U) {
        node->setSimpleFlags(flag);
        if (const std::string words = node->simpleFlagsString().substr(13); !words.empty())
            simple += formatText("%x ", flag) + words;
        if (flag < 0x10)
            continue; // the priority
        node->setBackupFlags(flag | 5);
        EXPECT_EQ(node->backupPriority(), 5U);
        const std::string text = node->backupFlagsString();
        EXPECT_TRUE(text.starts_with(formatText("0x%8.8lx : Backup_Priority (5) ", flag | 5))) << text;
        if (const std::string words = text.substr(33); !words.empty())
            backup += formatText("%x ", flag) + words;
        for (const auto& [number, has] : questions)
            EXPECT_EQ((node.get()->*has)(), flag == number) << number;
    }
    EXPECT_EQ(backup,
              "10 Backup_Backup 20 Backup_BackedUp 40 Backup_Exclude 80 Backup_Include 100 Backup_Extra "
              "200 Backup_System 400 Backup_Not_Active 800 Backup_Folder 1000 Backup_Missing "
              "20000 Backup_No_Folder Backup_Folder_Exclude 8000000 Backup_Folder_Include "
              "20000000 Backup_Excluded_Visible ");
    EXPECT_EQ(simple, "1 Backup_Simple_Checked 2 Backup_Simple_Enabled 4 Backup_Simple_Grayed "
                      "100 Backup_Simple_Type_Checked 200 Backup_Simple_Type_Enabled "
                      "400 Backup_Simple_Type_Visible 10000 Backup_Simple_Priority_Checked "
                      "20000 Backup_Simple_Priority_Enabled 40000 Backup_Simple_Priority_Visible ");
}

TEST(FileNode, IsCopiedAndDescribedWithAllThatItHas) {
    const FileNodeRef root = KelvaneFileNode::create("/", true);
    root->setPath("/");
    const Dictionary entries{
        {"fileName", "a"},   {"displayName", "A"}, {"isDirectory", true}, {"backupDate", Date{0}},
        {"version", 2},      {"state", "idle"},    {"size", 7},           {"backupFlags", 16U},
        {"simpleFlags", 1U}, {"backupColor", 2U},  {"totalCount", 4U},    {"uid", 5U},
        {"gid", 6U}};
    const FileNodeRef node = KelvaneFileNode::createWithDictionary(entries);
    root->addChild(node);
    node->addChild(KelvaneFileNode::create("child", false));
    node->setSelected(1);
    node->setInPolicy(true);
    node->setPurgeDate(Date{1});
    const std::string description = node->description();
    EXPECT_EQ(description.substr(description.find('\n')),
              "\n    fileName: a\n    displayName: A\n    isDirectory: YES\n    selected: 1\n"
              "    backupFlags: 0x00000010 : Backup_Priority (0) Backup_Backup \n"
              "    simpleFlags: 0x00000001 : Backup_Simple_Checked \n    backupColor: Backup_Color_Green\n"
              "    backupDate: 2001-01-01T00:00:00Z\n    state: idle\n    version: 2\n"
              "    purgeDate: 2001-01-01T00:00:01Z\n    fileCount: 4\n    size: 7\n");

    const FileNodeRef copy = node->copy();
    EXPECT_EQ(copy->backupFlags() + copy->simpleFlags() + static_cast<std::uint32_t>(copy->backupColor()),
              0U);
    EXPECT_TRUE(copy->isEqual(*node));
    EXPECT_EQ(copy->children(), node->children());
    EXPECT_EQ(copy->parent(), root);
    EXPECT_TRUE(copy->selected() == 1 && copy->inPolicy() && copy->purgeDate() == node->purgeDate());
    copy->setBackupFlags(16);
    copy->setSimpleFlags(1);
    copy->setBackupColor(2);
    EXPECT_EQ(copy->dictionary(), node->dictionary());
    EXPECT_FALSE(KelvaneFileNode::create()->isEqual(*KelvaneFileNode::create())) << "without a path";
    EXPECT_FALSE(node->isEqual(*root));
}

TEST(FileNode, IsMadeOfAFileOfTheDisk) {
    FakeFileServices services;
    services.disk.files = {{"/x/file.txt", FileAttributes::Kind::File},
                           {"/x/link", FileAttributes::Kind::SymbolicLink},
                           {"/x", FileAttributes::Kind::Directory}};
    const std::tuple<std::string, std::string, bool, unsigned, std::string> cases[] = {
        {"/x/file.txt", "file.txt", false, 5, "joestaff"},
        {"/x/link", "link", false, 5, "joestaff"},
        {"/x", "x", true, 5, "joestaff"},
        {"/x/gone", "gone", false, 0, "00"}};
    for (const auto& [path, name, isDirectory, size, owners] : cases) {
        const FileNodeRef node = KelvaneFileNode::fileNodeForPath(path, services);
        EXPECT_EQ(node->path(), path);
        EXPECT_EQ(node->fileName(), name);
        EXPECT_EQ(node->isDirectory(), isDirectory) << path;
        EXPECT_EQ(node->sizeValue(), size) << path;
        EXPECT_EQ(node->uidString(services.accounts) + node->gidString(services.accounts), owners);
        node->setUid(2);
        node->setGid(1);
        EXPECT_EQ(node->uidString(services.accounts) + node->gidString(services.accounts), "21");
    }
    EXPECT_EQ(KelvaneFileNode::fileNodeForPath("/", services)->displayName(), "System");
}

TEST(FileNode, IsRestorableWhenBackedUpOrAnActiveFolder) {
    FakeFileServices services;
    services.disk.files = {{"/secret", FileAttributes::Kind::File}, {"/open", FileAttributes::Kind::File}};
    const std::tuple<std::string_view, std::uint32_t, bool> cases[] = {
        {"/open", 0x10, true},  {"/gone", 0x410, true},  {"/secret", 0x10, false}, {"/open", 0x20, false},
        {"/gone", 0x800, true}, {"/gone", 0xC00, false}, {"/open", 0x1040, false}};
    for (const auto& [path, flags, isShown] : cases) {
        const FileNodeRef node = KelvaneFileNode::create();
        node->setPath(path);
        node->setBackupFlags(flags);
        EXPECT_EQ(node->showInRestoreBrowser(services), isShown) << path << ' ' << flags;
    }
}

// The entries are in the order in which the keys are written.
const Dictionary everything{
    {"fileName", "a.txt"}, {"displayName", ""},  {"isDirectory", true}, {"backupDate", Date{0}},
    {"version", 2.5},      {"path", "/x/a.txt"}, {"state", "idle"},     {"size", ~0ULL},
    {"backupFlags", ~0U},  {"simpleFlags", 2U},  {"backupColor", 3U},   {"totalCount", 4U},
    {"uid", 5U},           {"gid", ~1U}};

std::string keysOf(const Value& dictionary) {
    std::string keys;
    for (const auto& [key, value] : dictionary.dictionary())
        keys += key + ' ';
    return keys;
}

Dictionary named(const char* name, Array children) {
    return {{"fileName", name}, {"children", std::move(children)}};
}

TEST(FileNodeDictionary, ComesBackAsItWent) {
    const FileNodeRef node = KelvaneFileNode::createWithDictionary(everything);
    const Value dictionary = node->dictionary();
    EXPECT_EQ(dictionary, Value(everything));
    EXPECT_EQ(keysOf(dictionary), keysOf(everything));
    EXPECT_EQ(dictionary["isDirectory"].kind(), Value::Kind::Bool);
    EXPECT_EQ(*dictionary["simpleFlags"].integer(), (Integer{2, 4, false}));
    EXPECT_EQ(node->displayName(), "") << "empty is not absent";
}

TEST(FileNodeDictionary, LeavesOutWhatIsAbsentOrOfAWrongKindAndCutsWordsTo32Bits) {
    const Dictionary wrongKinds{{"fileName", 1},       {"displayName", Data{1}}, {"isDirectory", "yes"},
                                {"backupDate", "now"}, {"version", "2"},         {"path", 3},
                                {"state", Array{}},    {"size", "big"},          {"uid", Date{7}}};
    const Dictionary wide{
        {"backupFlags", 0x1F00000035ULL}, {"totalCount", -1}, {"uid", 1000.9}, {"size", 1ULL << 33U}};
    for (const Value& dictionary : {Value(), Value(wrongKinds), Value(wide)}) {
        const FileNodeRef node = KelvaneFileNode::createWithDictionary(dictionary);
        EXPECT_EQ(keysOf(node->dictionary()),
                  "isDirectory size backupFlags simpleFlags backupColor totalCount uid gid ");
        EXPECT_EQ(node->displayName() + node->path(), "");
        const bool isWide = dictionary == Value(wide);
        EXPECT_EQ(node->backupFlags(), isWide ? 0x35U : 0U);
        EXPECT_EQ(node->totalCount(), isWide ? 0xFFFFFFFFU : 0U);
        EXPECT_EQ(node->uid(), isWide ? 1000U : 0U);
        EXPECT_EQ(node->sizeValue(), isWide ? 1ULL << 33U : 0U);
    }
}

TEST(FileNodeDictionary, RefreshesANodeInItsPlace) {
    const FileNodeRef root = KelvaneFileNode::create("/", true);
    root->setPath("/r");
    const FileNodeRef node = KelvaneFileNode::createWithDictionary(everything);
    root->addChild(node);
    node->addChild(KelvaneFileNode::create("child", false));
    node->setSelected(1);
    node->setPurgeDate(Date{1});

    node->initWithDictionary(Dictionary{{"fileName", "b"}});
    EXPECT_EQ(node->parent(), root);
    EXPECT_EQ(node->path(), "/r/b") << "the old path went with the rest";
    EXPECT_EQ(node->selected(), 1);
    EXPECT_EQ(node->displayName(), "b");
    EXPECT_FALSE(node->purgeDate() || node->backupDate() || node->isDirectory());
    ASSERT_EQ(node->count(), 1U);

    const FileNodeRef held = node->children()[0];
    node->initWithDictionary(Dictionary{{"path", "/given"}, {"children", Array{7, named("n", {})}}});
    EXPECT_EQ(held->path(), "/r/b/child");
    ASSERT_EQ(node->count(), 1U) << "an entry that is not a dictionary is ignored";
    EXPECT_EQ(node->children()[0]->path(), "/given/n");
}

TEST(FileNodeDictionary, HoldsTheTree) {
    const FileNodeRef tree = KelvaneFileNodeProxy::create("/", true);
    EXPECT_EQ(tree->recursiveDictionary(), tree->dictionary())
        << "no list of children, not even an empty one";
    tree->initWithDictionary(named("/", {named("a", {named("b", {}), named("c", {})}), named("d", {})}));
    const Value dictionary = tree->recursiveDictionary();
    EXPECT_EQ(dictionary["children"].at(0)["children"].at(1)["fileName"], Value("c"));
    EXPECT_EQ(dictionary["children"].at(1)["children"], Value(Array{}));
    EXPECT_EQ(KelvaneFileNode::createWithDictionary(dictionary)->recursiveDictionary(), dictionary);
    EXPECT_NE(dynamic_cast<KelvaneFileNodeProxy*>(tree->nodeAtPath("/a/b").get()), nullptr)
        << "children are of their parent's class";

    const auto link = KelvaneProxy::create();
    link->setProtocol(KelvaneDaemonProtocol);
    const auto proxyOf = [](const FileNodeRef& node) {
        return dynamic_cast<const KelvaneFileNodeProxy&>(*node).proxy();
    };
    const auto linked = KelvaneFileNodeProxy::create("/", true);
    linked->setProxy(link);
    linked->initWithDictionary(named("/", {named("a", {named("b", {}), named("c", {})}), named("d", {})}));
    linked->setPath("/");
    EXPECT_EQ(linked->recursiveDictionary()["children"], dictionary["children"]);
    const FileNodeRef child = linked->mutableChildren()->front();
    EXPECT_EQ(proxyOf(child), link);
    EXPECT_EQ(proxyOf(child->mutableChildren()->front()), nullptr) << "nested ones have none";
}

} // namespace
} // namespace kelvane::tests
