#include "Foundation/PathComponents.h"

#include <gtest/gtest.h>

namespace kelvane {
namespace {

using Components = std::vector<std::string>;

TEST(PathComponents, AreTheNamesWithoutEmptyOnesAndTheirPathIsNormal) {
    const struct {
        std::string path;
        Components components;
        std::string normal;
    } cases[] = {
        {"", {}, ""},
        {"/", {"/"}, "/"},
        {"///", {"/"}, "/"},
        {"/Users/a/", {"/", "Users", "a"}, "/Users/a"},
        {"//Users///a//", {"/", "Users", "a"}, "/Users/a"},
        {"a/b/", {"a", "b"}, "a/b"},
        {"/a/./../b", {"/", "a", ".", "..", "b"}, "/a/./../b"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(pathComponents(each.path), each.components) << each.path;
        EXPECT_EQ(pathWithComponents(each.components), each.normal) << each.path;
    }
}

TEST(PathComponents, AreAppendedWithExactlyOneSeparator) {
    const struct {
        std::string path, component, joined;
    } cases[] = {
        {"/a", "b", "/a/b"}, {"/a/", "/b/", "/a/b"},   {"/", "b", "/b"}, {"", "b", "b"},
        {"", "/b", "/b"},    {"/a", "b//c", "/a/b/c"}, {"/a", "", "/a"}, {"/a", "/", "/a"},
        {"", "", ""},        {"a", "/b", "a/b"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(appendPathComponent(each.path, each.component), each.joined)
            << each.path << " + " << each.component;
}

TEST(PathComponents, SplitIntoFolderNameAndExtension) {
    const struct {
        std::string path, folder, name, extension;
    } cases[] = {
        {"/a/b.txt", "/a", "b.txt", "txt"},
        {"/a//b.tar.gz/", "/a", "b.tar.gz", "gz"},
        {"/a", "/", "a", ""},
        {"/", "/", "/", ""},
        {"//", "/", "/", ""},
        {"", "", "", ""},
        {"a", "", "a", ""},
        {"/a.d/b", "/a.d", "b", ""},
        {".hidden", "", ".hidden", ""},
        {".hidden.txt", "", ".hidden.txt", "txt"},
        {"a.", "", "a.", ""},
        {"..", "", "..", ""},
        {"..a", "", "..a", ""},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(deleteLastPathComponent(each.path), each.folder) << each.path;
        EXPECT_EQ(lastPathComponent(each.path), each.name) << each.path;
        EXPECT_EQ(pathExtension(each.path), each.extension) << each.path;
    }
}

} // namespace
} // namespace kelvane
