#include "Common/FileNode/FileNodeProxy.h"
#include "Common/KelvProxy.h"
#include "FakeDaemon/FakeDaemon.h"
#include "Support/Logging.h"
#include "Tests/Common/FakeFileServices.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace kelvane::tests {
namespace {

// Returns the names in order, each followed by a space.
std::string names(const FileNodeList& nodes) {
    std::string names;
    for (const FileNodeRef& node : nodes)
        names += node->fileName() + ' ';
    return names;
}

// The daemon's answer for a path: backed up, unless its name is unknown; larger with folder sizes.
Value known(const Array& arguments) {
    const std::string name = arguments[0].stringValue().substr(arguments[0].stringValue().rfind('/') + 1);
    if (name.starts_with("unknown"))
        return {};
    const bool withDirSizes = arguments.size() > 1 && arguments[1].boolValue();
    return Dictionary{{"fileName", name}, {"backupFlags", Backup_Backup}, {"size", withDirSizes ? 1000 : 1}};
}

// A daemon, a link to it, and a root node that uses the link.
class FileNodeProxy : public testing::Test {
protected:
    FileNodeProxy() {
        daemon.answerWith("dictionaryForPath:", known);
        daemon.answerWith("dictionaryForPath:withDirSizes:", known);
        daemon.answer(
            "childrenDictionariesForPath:",
            Array{Dictionary{{"fileName", "b"}, {"isDirectory", true}}, Dictionary{{"fileName", "a"}}});
        EXPECT_TRUE(daemon.start());
        const std::shared_ptr<KelvaneSocket> socket = KelvaneSocket::create();
        EXPECT_TRUE(socket->connectToPath(folder / "socket"));
        link->setProtocol(KelvaneDaemonProtocol);
        link->setSocket(socket);
        root->setPath("/");
        root->setProxy(link);
    }

    // Returns the paths that were requested from the daemon since the last call.
    std::string asked(std::string_view selector) {
        std::string paths;
        for (const ReceivedCall& call : daemon.calls())
            if (call.selector == selector)
                paths += call.arguments[0].stringValue() + ' ';
        daemon.forgetCalls();
        return paths;
    }

    TemporaryFolder folder;
    FakeDaemon daemon{folder / "socket"};
    std::shared_ptr<KelvaneProxy> link = KelvaneProxy::create();
    std::shared_ptr<KelvaneFileNodeProxy> root = KelvaneFileNodeProxy::create("/", true);
    FakeFileServices services;
};

TEST_F(FileNodeProxy, AsksForItsChildrenOnceUntilItIsFlushed) {
    root->addChild(KelvaneFileNode::create("stale", false));
    EXPECT_EQ(names(root->children()), "b a ");
    EXPECT_EQ(root->childWithName("a")->path(), "/a");
    EXPECT_EQ(asked("childrenDictionariesForPath:"), "/ ");
    root->flush();
    daemon.answer("childrenDictionariesForPath:", Dictionary());
    root->addChild(KelvaneFileNode::create("kept", false));
    EXPECT_EQ(names(root->children()), "kept ") << "no list, so the old one stays";
    EXPECT_EQ(root->count(), 1U);
    EXPECT_EQ(asked("childrenDictionariesForPath:"), "/ ") << "not asked again";

    daemon.answerWith("childrenDictionariesForPath:", [this](const Array&) {
        root->flush(); // the requesting thread waits for this one
        return Value(Array{});
    });
    root->flush();
    EXPECT_EQ(root->count() + root->count(), 0U);
    EXPECT_EQ(asked("childrenDictionariesForPath:"), "/ / ") << "a flush in the middle of it counts";
}

TEST_F(FileNodeProxy, LoadsWhatItSelectsAndNothingElse) {
    root->deselect();
    EXPECT_EQ(root->selectedChildren(false).size() + root->sizeValue(), 0U);
    EXPECT_EQ(asked("childrenDictionariesForPath:"), "");
    root->select();
    EXPECT_EQ(names(root->selectedChildren(false)), "b ") << "a was never backed up";
    const FileNodeRef kept = root->children()[0];
    root->flush();
    daemon.forgetCalls();
    root->checkSelections();
    EXPECT_EQ(root->selected(), 0) << "what it has comes unselected";
    EXPECT_EQ(asked("childrenDictionariesForPath:"), "/ ");
}

TEST_F(FileNodeProxy, IsAPlainNodeWithoutItsLink) {
    const auto child = KelvaneFileNodeProxy::create("child", true);
    root->addChild(child);
    EXPECT_EQ(child->proxy(), link) << "handed down";
    link.reset();
    EXPECT_EQ(names(root->children()), "child ");
    EXPECT_EQ(root->addPath("/new", services)->path(), "/new");
    root->refreshPath("/new", services);
    EXPECT_EQ(names(root->children()), "child ") << "no answer: the item counts as deleted";
}

TEST_F(FileNodeProxy, SurvivesATreeThatGoesWhileItAsks) {
    KelvaneFileNodeProxy* node = root.get();
    daemon.answerWith("childrenDictionariesForPath:", [this](const Array&) {
        root.reset();
        return Value(Array{Dictionary{{"fileName", "a"}}});
    });
    EXPECT_EQ(names(node->children()), "a ");
}

TEST_F(FileNodeProxy, AddsTheMissingNodesOfAPath) {
    services.disk.files = {{"/b/unknown1/unknown2", FileAttributes::Kind::Directory}};
    const FileNodeRef last = root->addPath("/b/unknown1/unknown2", services);
    EXPECT_EQ(last->path(), "/b/unknown1/unknown2");
    EXPECT_TRUE(last->isDirectory());
    EXPECT_EQ(last->parent()->parent(), root->childWithName("b"));
    EXPECT_EQ(asked("dictionaryForPath:"), "/b/unknown1 /b/unknown1/unknown2 ") << "b was there";
    const FileNodeRef file = root->addPath("/b/unknown3/unknown4", services);
    EXPECT_TRUE(!file->isDirectory() && file->parent()->isDirectory());
    EXPECT_TRUE(root->addPath("/b/known", services)->isBackup());
    EXPECT_EQ(root->addPath("/b/known", services)->path(), "/b/known");
    EXPECT_EQ(root->addPath("/", services), root);
}

TEST_F(FileNodeProxy, RefreshesAddsOrRemovesWhatChanged) {
    EXPECT_FALSE(root->nodeAtPath("/a")->isBackup());
    root->refreshPath("/a", services);
    EXPECT_TRUE(root->nodeAtPath("/a")->isBackup());
    root->refreshPath("/b/c", services);
    EXPECT_TRUE(root->nodeAtPath("/b/c")->isBackup());
    root->addPath("/b/unknown", services);
    std::string logged;
    const LogSinkToken sink = setLogSink([&](const LogEntry& entry) { logged += entry.text + '\n'; });
    KelvaneLogStart("/");
    root->refreshPath("/b/unknown", services);
    EXPECT_NE(logged.find("refreshPath: /b/unknown\\n"), std::string::npos) << logged;
    EXPECT_EQ(names(root->nodeAtPath("/b")->children()), "c ");
    EXPECT_EQ(asked("dictionaryForPath:"), "/a /b/c /b/c /b/unknown /b/unknown ");

    root->setFileName("/Volumes/Disk");
    root->refreshPath("x/unknown", services);
    EXPECT_EQ(asked("dictionaryForPath:"), "/Volumes/Disk/x/unknown ") << "below its own name";
}

TEST_F(FileNodeProxy, MakesNodesOfPathsThatTheDaemonKnows) {
    const FileNodeRef node = KelvaneFileNode::fileNodeForPath("/x/a", link);
    EXPECT_EQ(node->path(), "/x/a");
    EXPECT_EQ(node->sizeValue(), 1U);
    EXPECT_EQ(KelvaneFileNode::fileNodeForPath("/x/a", true, link)->sizeValue(), 1000U);
    const std::vector<std::string> paths{"/z", "/unknown", "/a"};
    EXPECT_EQ(names(KelvaneFileNode::fileNodesForPaths(paths, link)), "z a ");
    EXPECT_EQ(KelvaneFileNode::fileNodeForPath("/x/a", nullptr), nullptr);
}

} // namespace
} // namespace kelvane::tests
