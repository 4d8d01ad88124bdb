#include "Foundation/PathComponents.h"

#include <gtest/gtest.h>

namespace kelvane {
namespace {

TEST(PathComponents, AreTheNamesWithoutEmptyOnesAndMakeANormalPath) {
    const struct {
        std::string path, normal;
        std::vector<std::string> components;
    } cases[] = {{"", "", {}},
                 {"///", "/", {"/"}},
                 {"//Users///a//", "/Users/a", {"/", "Users", "a"}},
                 {"a/b/", "a/b", {"a", "b"}},
                 {"/a/./../b", "/a/./../b", {"/", "a", ".", "..", "b"}}};
    for (const auto& each : cases) {
        EXPECT_EQ(pathComponents(each.path), each.components) << each.path;
        EXPECT_EQ(pathWithComponents(each.components), each.normal) << each.path;
        EXPECT_EQ(appendPathComponent(each.path, {}), each.normal) << each.path;
        EXPECT_EQ(appendPathComponent({}, each.path), each.normal) << each.path;
    }
    for (const char* folder : {"/a", "/a/", "//a//"})
        EXPECT_EQ(appendPathComponent(folder, "/b//c/"), "/a/b/c") << folder;
    EXPECT_EQ(appendPathComponent("/", "b"), "/b");
    EXPECT_EQ(pathWithComponents({"a", "/b"}), "a/b");
}

TEST(PathComponents, SplitIntoFolderNameAndExtension) {
    const struct {
        std::string path, folder, name, extension;
    } cases[] = {{"/a//b.tar.gz/", "/a", "b.tar.gz", "gz"},
                 {"/a", "/", "a", ""},
                 {"//", "/", "/", ""},
                 {"", "", "", ""},
                 {"a.d/b", "a.d", "b", ""},
                 {".hidden.txt", "", ".hidden.txt", "txt"},
                 {"a.", "", "a.", ""},
                 {"..a", "", "..a", ""}};
    for (const auto& each : cases) {
        EXPECT_EQ(deleteLastPathComponent(each.path), each.folder) << each.path;
        EXPECT_EQ(lastPathComponent(each.path), each.name) << each.path;
        EXPECT_EQ(pathExtension(each.path), each.extension) << each.path;
    }
}

} // namespace
} // namespace kelvane
