#include "Common/FileNode.h"
#include "Tests/Common/FakeFileServices.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <unistd.h>

namespace kelvane::tests {

TEST(FileNode, SpellsItsFlagsColoursOwnersAndDates) {
    const FakeFileServices services;
    const FileNodeRef node = KelvaneFileNode::createWithDictionary(Dictionary{{"uid", 1}, {"gid", 2}});
    const auto backup = [&](std::uint32_t flags) {
        node->setBackupFlags(flags);
        return node->backupFlagsString();
    };
    EXPECT_EQ(backup(0), "0x00000000 : Backup_Undefined");
    EXPECT_EQ(backup(0x00020000), "0x00020000 : Backup_Priority (0) Backup_No_Folder Backup_Folder_Exclude ");
    EXPECT_EQ(backup(0x35), "0x00000035 : Backup_Priority (5) Backup_Backup Backup_BackedUp ");
    EXPECT_EQ(backup(0xA8001FC0),
              "0xa8001fc0 : Backup_Priority (0) Backup_Exclude Backup_Include Backup_Extra "
              "Backup_System Backup_Not_Active Backup_Folder Backup_Missing "
              "Backup_Folder_Include Backup_Excluded_Visible ");
    EXPECT_EQ(node->simpleFlagsString(), "0x00000000 : Backup_Simple_None");
    node->setSimpleFlags(0x70706);
    EXPECT_EQ(node->simpleFlagsString(),
              "0x00070706 : Backup_Simple_Enabled Backup_Simple_Grayed Backup_Simple_Type_Checked "
              "Backup_Simple_Type_Enabled Backup_Simple_Type_Visible Backup_Simple_Priority_Checked "
              "Backup_Simple_Priority_Enabled Backup_Simple_Priority_Visible ");
    std::string colors;
    for (std::int32_t color = -1; color <= 6; ++color) {
        node->setBackupColor(color);
        colors += node->backupColorString() + ' ';
    }
    EXPECT_EQ(colors, " Backup_Color_Undefined Backup_Color_None Backup_Color_Green Backup_Color_Yellow "
                      "Backup_Color_Gray Backup_Color_Blue  ");

    EXPECT_EQ(node->backupDateString(services), "Never");
    node->setBackupDate(Date{0});
    EXPECT_EQ(node->backupDateString(services), "a date");
    EXPECT_EQ(node->uidString(services.accounts) + ":" + node->gidString(services.accounts), "joe:staff");
    node->setUid(4294967295U);
    node->setGid(1);
    EXPECT_EQ(node->uidString(services.accounts) + ":" + node->gidString(services.accounts), "4294967295:1");
}

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
    EXPECT_EQ(folder->kind(services), "folder") << "its volume has gone, but it is none itself";
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

TEST(FileNode, DescribesAFileOfTheDisk) {
    const TemporaryFolder folder;
    const std::string file = folder.write("file.txt", "12345");
    std::filesystem::create_symlink(file, folder / "link");
    const LocalFileSystem disk{Volumes()};
    const FakeAccounts accounts;
    const PlainFileServices services(disk, accounts);

    const auto describe = [&](const std::string& path) {
        const FileNodeRef node = KelvaneFileNode::fileNodeForPath(path, services);
        EXPECT_EQ(node->path(), path);
        return std::tuple(node->fileName(), node->isDirectory(), node->sizeValue(), node->uid(), node->gid());
    };
    EXPECT_EQ(describe(file), std::tuple("file.txt", false, 5U, ::getuid(), ::getgid()));
    EXPECT_EQ(describe(folder / "link"), std::tuple("link", false, file.size(), ::getuid(), ::getgid()));
    EXPECT_EQ(describe(folder / "gone"), std::tuple("gone", false, 0U, 0U, 0U));
    EXPECT_TRUE(std::get<bool>(describe(folder.path())));
    EXPECT_EQ(KelvaneFileNode::fileNodeForPath("/", services)->displayName(), "System");
}

} // namespace kelvane::tests
