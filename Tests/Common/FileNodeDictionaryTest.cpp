#include "Common/FileNodeProxy.h"

#include <gtest/gtest.h>

namespace kelvane::tests {
namespace {

// In the order in which the keys are written.
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

} // namespace

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
    ASSERT_EQ(node->count(), 1U) << "what is no dictionary is no child";
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
}

TEST(FileNodeDictionary, GivesACopyAllButFlagsColourAndPath) {
    const FileNodeRef parent = KelvaneFileNode::create("p", true);
    const FileNodeRef node = KelvaneFileNodeProxy::create();
    parent->setPath("/p");
    parent->addChild(node);
    node->initWithDictionary(everything);
    node->addChild(KelvaneFileNode::create("c", true));
    node->setPurgeDate(Date{6});
    node->setInPolicy(true);
    node->select();

    Dictionary expected = everything;
    for (const char* key : {"backupFlags", "simpleFlags", "backupColor"})
        expected.set(key, 0);
    expected.erase("path");
    const FileNodeRef copy = node->copy();
    EXPECT_EQ(copy->dictionary(), Value(expected));
    EXPECT_EQ(copy->path(), "/p/a.txt");
    EXPECT_EQ(copy->purgeDate(), Date{6});
    EXPECT_TRUE(copy->inPolicy() && copy->selected() == 1);
    EXPECT_NE(dynamic_cast<KelvaneFileNodeProxy*>(copy.get()), nullptr);
    EXPECT_EQ(copy->children(), node->children());
    EXPECT_EQ(copy->children()[0]->parent(), node);
}

} // namespace kelvane::tests
