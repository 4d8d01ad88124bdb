#include "Common/FileNode.h"
#include "Foundation/BinaryPropertyList.h"
#include "Foundation/Format.h"

#include <benchmark/benchmark.h>
#include <malloc.h>

namespace kelvane {
namespace {

constexpr int width = 100; // items of a folder; three levels of them make 1,010,101 nodes

// What the daemon says of a file, with names as people's cameras and programs give them.
Value fileDictionary(const std::string& folder, int number) {
    const std::string name = formatText("IMG_20190714_%06d.jpeg", number);
    return Dictionary{{"fileName", name},
                      {"displayName", name},
                      {"isDirectory", false},
                      {"backupDate", Date{6e8}},
                      {"version", 3},
                      {"path", folder + '/' + name},
                      {"size", 3'245'678 + number},
                      {"backupFlags", 0x35U},
                      {"simpleFlags", 3U},
                      {"backupColor", 2U},
                      {"totalCount", 1U},
                      {"uid", 1000U},
                      {"gid", 1000U}};
}

Value childDictionaries(int count) {
    Array dictionaries;
    for (int number = 0; number < count; ++number)
        dictionaries.push_back(fileDictionary("/Users/joe/Pictures/Holiday 2019", number));
    return dictionaries;
}

void addItems(const FileNodeRef& folder, int levels) {
    for (int number = 0; number < width; ++number) {
        const bool isDirectory = levels > 1;
        const int place = number * 37 % width; // not in the order of the names
        const FileNodeRef node = KelvaneFileNode::create(
            formatText(isDirectory ? "Holiday %03d" : "IMG_20190714_%06d.jpeg", place), isDirectory);
        node->setSizeValue(static_cast<std::uint64_t>(place));
        node->setBackupDate(Date{6e8});
        folder->addChild(node);
        if (isDirectory)
            addItems(node, levels - 1);
    }
}

FileNodeRef newTree() {
    FileNodeRef root = KelvaneFileNode::create("/", true);
    root->setPath("/");
    addItems(root, 3);
    return root;
}

const FileNodeRef& sharedTree() {
    static const FileNodeRef tree = newTree();
    return tree;
}

double allocatedBytes() {
    const struct mallinfo2 info = ::mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

void fileTreeOfAMillionIsBuilt(benchmark::State& state) {
    for (auto step : state) {
        const double before = allocatedBytes();
        FileNodeRef tree = newTree();
        state.PauseTiming();
        state.counters["bytesPerNode"] = (allocatedBytes() - before) / 1'010'101;
        tree.reset();
        state.ResumeTiming();
    }
}
BENCHMARK(fileTreeOfAMillionIsBuilt)->Unit(benchmark::kMillisecond);

void fileTreeOfAMillionIsDestroyed(benchmark::State& state) {
    for (auto step : state) {
        state.PauseTiming();
        FileNodeRef tree = newTree();
        state.ResumeTiming();
        tree.reset();
    }
}
BENCHMARK(fileTreeOfAMillionIsDestroyed)->Unit(benchmark::kMillisecond);

void fileTreeSetSelected(benchmark::State& state) {
    const FileNodeRef& tree = sharedTree();
    std::int32_t selected = 0;
    for (auto step : state)
        tree->setSelected(selected = 1 - selected);
}
BENCHMARK(fileTreeSetSelected)->Unit(benchmark::kMillisecond);

void fileTreeTicksOneFile(benchmark::State& state) {
    const FileNodeRef file = sharedTree()->nodeAtPath("/Holiday 050/Holiday 050/IMG_20190714_000050.jpeg");
    std::int32_t selected = 0;
    for (auto step : state)
        file->setSelected(selected = 1 - selected);
}
BENCHMARK(fileTreeTicksOneFile);

void fileTreeSelectedChildren(benchmark::State& state) {
    sharedTree()->setSelected(1);
    for (auto step : state)
        benchmark::DoNotOptimize(sharedTree()->selectedChildren(true));
}
BENCHMARK(fileTreeSelectedChildren)->Unit(benchmark::kMillisecond);

void fileTreeDeepestFullSelections(benchmark::State& state) {
    sharedTree()->setSelected(1);
    for (auto step : state)
        benchmark::DoNotOptimize(sharedTree()->deepestFullSelections());
}
BENCHMARK(fileTreeDeepestFullSelections)->Unit(benchmark::kMillisecond);

void fileTreeNodeAtPath(benchmark::State& state) {
    for (auto step : state)
        benchmark::DoNotOptimize(
            sharedTree()->nodeAtPath("/Holiday 099/Holiday 099/IMG_20190714_000099.jpeg"));
}
BENCHMARK(fileTreeNodeAtPath);

void fileTreeSorts(benchmark::State& state) {
    SortDescriptor byName{SortDescriptor::Key::FileName, true};
    const FileNodeRef& tree = sharedTree();
    for (auto step : state) {
        byName.ascending = !byName.ascending;
        tree->sortUsingDescriptors({&byName, 1});
    }
}
BENCHMARK(fileTreeSorts)->Unit(benchmark::kMillisecond);

// `ofDictionary` is the budget's number: the memory of a loaded node over the bytes of its dictionary alone.
void fileNodesOf100000Dictionaries(benchmark::State& state) {
    const Value dictionaries = childDictionaries(100'000);
    const auto plistBytes = static_cast<double>(writeBinaryPropertyList(dictionaries.at(0)).bytes.size());
    for (auto step : state) {
        const double before = allocatedBytes();
        FileNodeList nodes = KelvaneFileNode::fileNodesForDictionaries(dictionaries);
        state.PauseTiming();
        const double bytesPerNode = (allocatedBytes() - before) / 100'000;
        state.counters["bytesPerNode"] = bytesPerNode;
        state.counters["ofDictionary"] = bytesPerNode / plistBytes;
        state.counters["dictionaryBytes"] = plistBytes;
        nodes.clear();
        state.ResumeTiming();
    }
}
BENCHMARK(fileNodesOf100000Dictionaries)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace kelvane
