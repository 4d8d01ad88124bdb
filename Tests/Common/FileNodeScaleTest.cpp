#include "Common/FileNode.h"

#include <gtest/gtest.h>

namespace kelvane {
namespace {

// A folder of 100,000 items among 900 of 1,000: what costs more than its share in a wide folder would not
// end.
TEST(FileNodeScale, HoldsAMillionNodes) {
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

} // namespace
} // namespace kelvane
