#include "Common/FileNode.h"
#include "Foundation/Assertion.h"

#include <functional>
#include <gtest/gtest.h>

namespace kelvane::tests {
namespace {

FileNodeRef add(const FileNodeRef& parent, std::string_view name, bool isDirectory = true) {
    FileNodeRef node = KelvaneFileNode::create(name, isDirectory);
    parent->addChild(node);
    return node;
}

FileNodeRef newRoot(std::string_view path = "/") {
    FileNodeRef root = KelvaneFileNode::create("the root", true);
    root->setPath(path);
    return root;
}

std::string names(const FileNodeList& nodes) {
    std::string names;
    for (const FileNodeRef& node : nodes)
        names += node->fileName() + ' ';
    return names;
}

} // namespace

TEST(FileNodeTree, FindsNodesByExactNamesBelowTheRoot) {
    const FileNodeRef root = newRoot();
    const FileNodeRef a = add(root, "a");
    const FileNodeRef first = add(a, "b");
    add(a, "b");
    a->addChild(KelvaneFileNode::create());
    const std::pair<std::string_view, FileNodeRef> cases[] = {
        {"/", root},         {"", root},      {"anything", root}, {"/a", a}, {"other//a/b/", first},
        {"/a/b/c", nullptr}, {"/A", nullptr}, {"/b", nullptr}};
    for (const auto& [path, node] : cases)
        EXPECT_EQ(first->nodeAtPath(path), node) << path;
    EXPECT_EQ(a->childWithName(""), nullptr) << "a node without a name has none to find it by";
    EXPECT_EQ(first->root(), root);
}

TEST(FileNodeTree, KeepsAPathOnceItIsKnown) {
    const FileNodeRef root = newRoot("/Volumes/Disk");
    const FileNodeRef folder = add(root, "folder");
    const FileNodeRef file = add(folder, "file");
    EXPECT_EQ(file->path(), "/Volumes/Disk/folder/file");
    add(root, "other")->addChild(file);
    file->setFileName("renamed");
    folder->setFileName("renamed");
    EXPECT_EQ(file->path(), "/Volumes/Disk/folder/file");
    EXPECT_EQ(folder->path(), "/Volumes/Disk/folder") << "it became known on the way";
    EXPECT_EQ(file->parent()->path(), "/Volumes/Disk/other");
    try {
        file->setPath("/elsewhere");
        ADD_FAILURE() << "only a root is where one says";
    } catch (const AssertionFailure& failure) {
        EXPECT_STREQ(failure.what(), "You cannot set the path string of a node in a real hierarchy");
    }
    EXPECT_EQ(add(newRoot("/"), "/a/")->path(), "/a");

    const FileNodeRef pathless = KelvaneFileNode::create("/", true);
    EXPECT_EQ(pathless->path() + add(pathless, "a")->path(), "");
    pathless->setPath("/late");
    EXPECT_EQ(pathless->children()[0]->path(), "/late/a");
}

TEST(FileNodeTree, RemovesEveryNodeOfThePath) {
    const FileNodeRef root = newRoot();
    for (const char* name : {"a", "b", "a", "c"})
        add(root, name);
    const FileNodeRef a = root->children()[0];
    root->removeNodeAtPath("/a");
    EXPECT_EQ(names(root->children()), "b c ");
    EXPECT_EQ(a->parent(), root) << "it still knows where it was";
    root->removeNodeAtPath("/gone");
    root->removeNodeAtPath("/");
    EXPECT_EQ(root->count(), 2U);

    const FileNodeRef pathless = KelvaneFileNode::create("/", true);
    add(pathless, "a");
    pathless->removeNodeAtPath("/a");
    EXPECT_EQ(pathless->count(), 1U) << "without a path it equals nothing, not even itself";
}

TEST(FileNodeTree, LeavesAHeldNodeWholeWhenItsTreeGoes) {
    const std::function<void(FileNodeRef&)> endings[] = {
        [](FileNodeRef& root) { root.reset(); }, [](FileNodeRef& root) { root->flush(); },
        [](FileNodeRef& root) { root->removeNodeAtPath("/a"); },
        [](FileNodeRef& root) {
            root->initWithDictionary(Dictionary{{"children", Array{}}});
        }};
    for (const auto& end : endings) {
        FileNodeRef root = newRoot();
        const FileNodeRef held = add(add(add(root, "a"), "b"), "c");
        add(held, "child", false)->setSizeValue(7);
        const FileNodeRef copy = held->copy();
        const FileNodeRef removed = add(root, "d");
        root->removeNodeAtPath("/d");
        removed->initWithDictionary(Dictionary{{"fileName", "e"}});
        end(root);
        EXPECT_EQ(copy->path(), "/a/b/c") << "which nobody's list of children holds";
        EXPECT_EQ(removed->path(), "/e");
        EXPECT_EQ(held->path(), "/a/b/c");
        EXPECT_EQ(held->parent(), nullptr);
        EXPECT_EQ(held->root(), held);
        EXPECT_EQ(held->sizeValue(), 7U);
        EXPECT_EQ(held->children()[0]->path(), "/a/b/c/child");
    }
}

TEST(FileNodeTree, IsSortedByEachKeyInBothDirectionsAndInItsFolders) {
    using Key = SortDescriptor::Key;
    // Each key's smaller, larger value, none of which another key would bring into this order.
    const Dictionary small{{"fileName", "a"}, {"version", 1}};
    const std::pair<Key, Dictionary> cases[] = {{Key::FileName, {{"fileName", "b"}}},
                                                {Key::DisplayName, {{"displayName", "b"}}},
                                                {Key::IsDirectory, {{"isDirectory", true}}},
                                                {Key::BackupDate, {{"backupDate", Date{1}}}},
                                                {Key::Version, {{"version", 2}}},
                                                {Key::State, {{"state", "s"}}},
                                                {Key::Size, {{"size", 1}}},
                                                {Key::TotalCount, {{"totalCount", 1}}},
                                                {Key::BackupColor, {{"backupColor", 1}}}};
    for (const auto& [key, larger] : cases) {
        for (const bool ascending : {true, false}) {
            const FileNodeRef root = newRoot();
            const FileNodeRef folder = add(root, "folder");
            folder->addChild(KelvaneFileNode::createWithDictionary(ascending ? larger : small));
            folder->addChild(KelvaneFileNode::createWithDictionary(small));
            folder->addChild(KelvaneFileNode::createWithDictionary(ascending ? small : larger));
            const FileNodeList before = folder->children();
            const SortDescriptor descriptor{key, ascending};
            root->sortUsingDescriptors({&descriptor, 1});
            const FileNodeList expected = ascending ? FileNodeList{before[1], before[2], before[0]}
                                                    : FileNodeList{before[2], before[0], before[1]};
            EXPECT_EQ(folder->children(), expected) << static_cast<int>(key) << ascending;
        }
    }
}

TEST(FileNodeTree, AddsUpSizesAndTellsWhatItHolds) {
    const FileNodeRef root = newRoot();
    root->setSizeValue(10);
    add(root, "Contents", false)->setSizeValue(5);
    const FileNodeRef folder = add(root, "b");
    folder->setSize(Value(3));
    add(folder, "contents")->setSizeValue(4);
    EXPECT_EQ(root->size(), Value(22));
    const auto [directories, files] = folder->hasChildDirectoriesAndFiles();
    EXPECT_TRUE(directories && !files);
    EXPECT_TRUE(root->isBundle() && !folder->isBundle());
}

// Each of these would overrun the stack if it went down one call a level.
TEST(FileNodeTree, WorksAtAnyDepth) {
    constexpr int depth = 100'000;
    FileNodeRef root = newRoot();
    FileNodeRef deepest = root;
    for (int level = 0; level < depth; ++level) {
        deepest = add(deepest, "d");
        deepest->setSizeValue(1);
    }
    deepest->setIsDirectory(false);
    deepest->setBackupDate(Date{1});
    root->setSelected(1);
    EXPECT_EQ(root->selectedChildren(true), FileNodeList{deepest});
    EXPECT_EQ(root->deepestFullSelections(), FileNodeList{deepest->parent()});
    deepest->setSelected(0);
    EXPECT_EQ(root->selected(), 0);
    EXPECT_EQ(root->sizeValue(), 100'000U);
    const SortDescriptor bySize{SortDescriptor::Key::Size};
    root->sortUsingDescriptors({&bySize, 1});

    Value dictionary = root->recursiveDictionary();
    EXPECT_EQ(KelvaneFileNode::createWithDictionary(dictionary)->sizeValue(), 100'000U);
    dictionary = {};
    root.reset();
    EXPECT_EQ(deepest->path().size(), 2U * depth);
}

// A folder of 100,000 items among 900 of 1,000: what costs more than its share in a wide folder would not
// end.
TEST(FileNodeTree, HoldsAMillionNodes) {
    const FileNodeRef root = KelvaneFileNode::create("/", true);
    root->setPath("/");
    for (int folder = 0; folder <= 900; ++folder) {
        const FileNodeRef parent = KelvaneFileNode::create(std::to_string(folder), true);
        root->addChild(parent);
        for (int item = 0; item < (folder == 0 ? 100'000 : 1'000); ++item) {
            const FileNodeRef file = KelvaneFileNode::create(std::to_string(item), false);
            file->setBackupDate(Date());
            parent->addChild(file);
        }
    }
    root->setSelected(1);
    root->nodeAtPath("/0/99999")->setSelected(0);
    EXPECT_EQ(root->selected(), -1);
    FileNodeList files = root->selectedChildren(true);
    EXPECT_EQ(files.size(), 999'999U);
    EXPECT_EQ(root->selectedChildren(false).size(), 900U + 99'999U);
    root->removeNodeAtPath("/0/5");
    EXPECT_EQ(root->nodeAtPath("/0")->count(), 99'999U);
    root->flush();
    EXPECT_EQ(files.back()->path(), "/900/999");
}

} // namespace kelvane::tests
