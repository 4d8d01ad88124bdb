#include "PreferencePane/Info/LocationItems.h"

#include <gtest/gtest.h>

namespace kelvane {
namespace {

std::string shown(std::string_view path) {
    std::string lines;
    for (const LocationItem& item : locationItems(path, "box"))
        lines += item.title + (item.folder.empty() ? "" : "=" + item.folder) + ';';
    return lines;
}

TEST(LocationItems, AreTheFoldersFromTheInsideToTheComputer) {
    struct Case {
        const char* path;
        const char* items;
    };
    for (const auto& [path, items] : {
             Case{"/Users/ann/Documents/a.txt", "Documents=/Users/ann/Documents;ann=/Users/ann;box;"},
             Case{"/Users/ann", "box;"},
             Case{"/a.txt", "box;"},
             Case{"/", "box;"},
             Case{"/Volumes/Photos/Scans/", "Photos=/Volumes/Photos;box;"},
             Case{"", "--;"},
             Case{"a.txt", ""},
             Case{"notes/a.txt", "box;"},
         })
        EXPECT_EQ(shown(path), items) << path;
    EXPECT_EQ(locationItems("/Users/ann", "box")[0].kind, LocationItem::Kind::Computer);
    EXPECT_EQ(locationItems("", "box")[0].kind, LocationItem::Kind::Unknown);
}

} // namespace
} // namespace kelvane
