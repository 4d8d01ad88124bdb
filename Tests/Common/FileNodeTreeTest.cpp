#include "Common/FileNode/FileNode.h"
#include "Foundation/Assertion.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <random>

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

using States = std::map<FileNodeRef, std::int32_t>;

// Returns the node and all nodes below it, each before its children.
FileNodeList everythingFrom(const FileNodeRef& node) {
    FileNodeList nodes{node};
    for (const FileNodeRef& child : node->children()) {
        const FileNodeList below = everythingFrom(child);
        nodes.insert(nodes.end(), below.begin(), below.end());
    }
    return nodes;
}

// Returns the selected files below the nodes of the list.
FileNodeList tickedFiles(const FileNodeList& list) {
    FileNodeList files;
    for (const FileNodeRef& item : list)
        std::ranges::copy_if(everythingFrom(item), std::back_inserter(files), [](const FileNodeRef& node) {
            return !node->isDirectory() && node->selected() == 1;
        });
    return files;
}

States statesOf(const FileNodeList& nodes) {
    States states;
    for (const FileNodeRef& node : nodes)
        states[node] = node->selected();
    return states;
}

// The states after a node is selected, computed directly from the rule.
void tick(States& states, const FileNodeRef& ticked, bool isOn) {
    const auto spread = [&](const auto& self, const FileNodeRef& node) -> void {
        if (isOn && !node->isDirectory() && !node->backupDate())
            return;
        states[node] = isOn ? 1 : 0;
        for (const FileNodeRef& child : node->children())
            self(self, child);
    };
    spread(spread, ticked);
    for (FileNodeRef ancestor = ticked->parent(); ancestor; ancestor = ancestor->parent()) {
        const FileNodeList children = ancestor->children();
        const auto all = [&](std::int32_t state) {
            return std::ranges::all_of(children, [&](const auto& child) { return states[child] == state; });
        };
        states[ancestor] = all(1) ? 1 : all(0) ? 0 : -1;
    }
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
    const FileNodeList all = root->children();
    root->removeNodeAtPath("/a");
    EXPECT_EQ(root->children(), (FileNodeList{all[1], all[3]}));
    EXPECT_EQ(all[0]->parent(), root) << "it still knows where it was";
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
        EXPECT_EQ(held->copy()->path(), "/a/b/c");
        held->initWithDictionary(Dictionary{{"fileName", "f"}});
        EXPECT_EQ(held->path(), "/a/b/f");
    }
}

TEST(FileNodeTree, IsSortedByEachKeyInBothDirectionsAndInItsFolders) {
    using Key = SortDescriptor::Key;
    // A smaller and a larger value for each key; no other key would give the same order.
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
            add(root, "empty");
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
    const FileNodeRef root = newRoot();
    const FileNodeRef nodes[] = {add(root, "b", false), add(root, "c"), add(root, "a", false)};
    const SortDescriptor descriptors[] = {{Key::IsDirectory, false}, {Key::FileName, true}};
    root->sortUsingDescriptors(descriptors);
    EXPECT_EQ(root->children(), (FileNodeList{nodes[1], nodes[2], nodes[0]})) << "folders first";
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

// Each of these would overflow the stack with one call per level.
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

// Anything with quadratic cost would not end in a wide folder.
TEST(FileNodeTree, HoldsAFolderOf100000Items) {
    const FileNodeRef root = newRoot();
    for (int item = 0; item < 100'000; ++item)
        add(root, std::to_string(item), false)->setBackupDate(Date());
    root->setSelected(1);
    root->nodeAtPath("/99999")->setSelected(0);
    EXPECT_EQ(root->selected(), -1);
    const FileNodeList files = root->selectedChildren(true);
    EXPECT_EQ(files.size(), 99'999U);
    root->removeNodeAtPath("/5");
    EXPECT_EQ(root->count(), 99'999U);
    root->flush();
    EXPECT_EQ(files.back()->path(), "/99998");
}

TEST(FileNodeSelection, FollowsItsLawsOnRandomTrees) {
    for (unsigned seed = 1; seed <= 100; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        const FileNodeRef root = KelvaneFileNode::create("/", true);
        root->checkSelections();
        EXPECT_EQ(root->selected(), 1) << "all of nothing";
        root->setSelected(0);
        FileNodeList folders{root};
        for (int i = 0; i < 40; ++i) {
            const FileNodeRef node = add(folders[random() % folders.size()], "item", random() % 3 == 0);
            if (random() % 4 != 0)
                node->setBackupDate(Date{1});
            if (node->isDirectory())
                folders.push_back(node);
        }
        const FileNodeList nodes = everythingFrom(root);
        for (int i = 0; i < 30; ++i) {
            const FileNodeRef& ticked = nodes[random() % nodes.size()];
            const bool isOn = random() % 3 != 0;
            States expected = statesOf(nodes);
            tick(expected, ticked, isOn);
            ticked->setSelected(isOn ? 1 : 0);
            ASSERT_EQ(statesOf(nodes), expected);

            const FileNodeList files = tickedFiles(root->children());
            const FileNodeList whole = root->selectedChildren(false);
            ASSERT_EQ(root->selectedChildren(true), files);
            ASSERT_EQ(tickedFiles(whole), files);
            for (const FileNodeRef& item : whole)
                for (FileNodeRef above = item->parent(); above != root; above = above->parent())
                    ASSERT_EQ(above->selected(), -1) << "the topmost stands for it";
            for (const FileNodeRef& item : root->deepestFullSelections())
                ASSERT_FALSE(item->selected() != 1 || item->hasChildDirectoriesAndFiles().directories);
            ASSERT_EQ(tickedFiles(root->deepestFullSelections()), files);
        }
    }
}

} // namespace kelvane::tests
