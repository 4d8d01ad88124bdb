#include "Common/FileNode.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <random>

namespace kelvane::tests {
namespace {

using States = std::map<FileNodeRef, std::int32_t>;

FileNodeRef add(const FileNodeRef& parent, bool isDirectory, bool isBackedUp) {
    FileNodeRef node = KelvaneFileNode::create("item", isDirectory);
    if (isBackedUp)
        node->setBackupDate(Date{1});
    parent->addChild(node);
    return node;
}

// The node and all below it, each before its children.
FileNodeList everythingFrom(const FileNodeRef& node) {
    FileNodeList nodes{node};
    for (const FileNodeRef& child : node->children()) {
        const FileNodeList below = everythingFrom(child);
        nodes.insert(nodes.end(), below.begin(), below.end());
    }
    return nodes;
}

// The ticked files that the list stands for.
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

// What a tick makes of the states, by the words of the rule.
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

TEST(FileNodeSelection, FollowsItsLawsOnRandomTrees) {
    for (unsigned seed = 1; seed <= 100; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        const FileNodeRef root = KelvaneFileNode::create("/", true);
        FileNodeList folders{root};
        for (int i = 0; i < 40; ++i) {
            const FileNodeRef node =
                add(folders[random() % folders.size()], random() % 3 == 0, random() % 4 != 0);
            if (node->isDirectory())
                folders.push_back(node);
        }
        const FileNodeList nodes = everythingFrom(root);
        for (int i = 0; i < 30; ++i) {
            const FileNodeRef ticked = nodes[random() % nodes.size()];
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

TEST(FileNodeSelection, OfAFolderIsPushedDownToItsFilesAndDeepestFolders) {
    const FileNodeRef root = KelvaneFileNode::create("/", true);
    root->checkSelections();
    EXPECT_EQ(root->selected(), 1) << "all of nothing";
    const FileNodeRef folder = add(root, true, false);
    const FileNodeRef file = add(folder, false, true);
    const FileNodeRef deepest = add(folder, true, false);
    add(deepest, false, true);
    folder->setSelected(1);
    EXPECT_EQ(root->deepestFullSelections(), (FileNodeList{file, deepest}));
    EXPECT_EQ(root->selectedChildren(false), FileNodeList{folder});
}

} // namespace kelvane::tests
