#include "Bench/FileDictionaries.h"
#include "Common/FileNode/FileNode.h"
#include "Foundation/Format.h"
#include "Foundation/PropertyList/BinaryPropertyList.h"

#include <benchmark/benchmark.h>
#include <malloc.h>

namespace kelvane::bench {
namespace {

constexpr int width = 100; // items per folder; three levels make 1,010,101 nodes

void addItems(const FileNodeRef& folder, int levels) {
    for (int number = 0; number < width; ++number) {
        const bool isDirectory = levels > 1;
        const int place = number * 37 % width; // not sorted by name
        const FileNodeRef node = KelvaneFileNode::create(
            isDirectory ? formatText("Holiday %03d", place) : formatText("IMG_20190714_%06d.jpeg", place),
            isDirectory);
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
    for ([[maybe_unused]] auto step : state) {
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
    for ([[maybe_unused]] auto step : state) {
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
    for ([[maybe_unused]] auto step : state)
        tree->setSelected(selected = 1 - selected);
}
BENCHMARK(fileTreeSetSelected)->Unit(benchmark::kMillisecond);

void fileTreeTicksOneFile(benchmark::State& state) {
    const FileNodeRef file = sharedTree()->nodeAtPath("/Holiday 050/Holiday 050/IMG_20190714_000050.jpeg");
    std::int32_t selected = 0;
    for ([[maybe_unused]] auto step : state)
        file->setSelected(selected = 1 - selected);
}
BENCHMARK(fileTreeTicksOneFile);

void fileTreeSelectedChildren(benchmark::State& state) {
    sharedTree()->setSelected(1);
    for ([[maybe_unused]] auto step : state)
        benchmark::DoNotOptimize(sharedTree()->selectedChildren(true));
}
BENCHMARK(fileTreeSelectedChildren)->Unit(benchmark::kMillisecond);

void fileTreeDeepestFullSelections(benchmark::State& state) {
    sharedTree()->setSelected(1);
    for ([[maybe_unused]] auto step : state)
        benchmark::DoNotOptimize(sharedTree()->deepestFullSelections());
}
BENCHMARK(fileTreeDeepestFullSelections)->Unit(benchmark::kMillisecond);

void fileTreeNodeAtPath(benchmark::State& state) {
    for ([[maybe_unused]] auto step : state)
        benchmark::DoNotOptimize(
            sharedTree()->nodeAtPath("/Holiday 099/Holiday 099/IMG_20190714_000099.jpeg"));
}
BENCHMARK(fileTreeNodeAtPath);

void fileTreeSorts(benchmark::State& state) {
    SortDescriptor byName{SortDescriptor::Key::FileName, true};
    const FileNodeRef& tree = sharedTree();
    for ([[maybe_unused]] auto step : state) {
        byName.ascending = !byName.ascending;
        tree->sortUsingDescriptors({&byName, 1});
    }
}
BENCHMARK(fileTreeSorts)->Unit(benchmark::kMillisecond);

double meanPropertyListBytes(const Value& dictionaries) {
    std::size_t sum = 0;
    for (const Value& dictionary : dictionaries.array())
        sum += writeBinaryPropertyList(dictionary).bytes.size();
    return static_cast<double>(sum) / static_cast<double>(dictionaries.size());
}

// The budget is bytesPerNode relative to dictionaryBytes, with each dictionary written by itself.
void fileNodesOf100000Dictionaries(benchmark::State& state) {
    const Value dictionaries = fileDictionaries(100'000);
    state.counters["dictionaryBytes"] = meanPropertyListBytes(dictionaries);
    for ([[maybe_unused]] auto step : state) {
        const double before = allocatedBytes();
        FileNodeList nodes = KelvaneFileNode::fileNodesForDictionaries(dictionaries);
        state.PauseTiming();
        state.counters["bytesPerNode"] = (allocatedBytes() - before) / 100'000;
        nodes.clear();
        state.ResumeTiming();
    }
}
BENCHMARK(fileNodesOf100000Dictionaries)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace kelvane::bench
