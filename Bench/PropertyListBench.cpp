#include "Bench/FileDictionaries.h"
#include "Foundation/PropertyList/BinaryPropertyList.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <array>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <plist/plist.h>
#include <stdexcept>

namespace kelvane::bench {
namespace {

constexpr unsigned fileCount = 100000;

const Data& bytes() {
    static const Data written = writeBinaryPropertyList(fileDictionaries(fileCount)).bytes;
    return written;
}

// Runs `action` untimed and returns free memory to the system, so that each iteration pays for the memory it
// takes, like a program that reads its first large list.
template <class Action>
void untimed(benchmark::State& state, Action action) {
    state.PauseTiming();
    action();
    ::malloc_trim(0);
    state.ResumeTiming();
}

void readFileDictionaries(benchmark::State& state) {
    const Data& file = bytes();
    for ([[maybe_unused]] auto iteration : state) {
        PropertyListReading reading = readBinaryPropertyList(file);
        untimed(state, [&] {
            if (reading.value.size() != fileCount)
                state.SkipWithError(reading.error.c_str());
            reading = {};
        });
    }
}
BENCHMARK(readFileDictionaries)->Unit(benchmark::kMillisecond);

void readFileDictionariesByLibplist(benchmark::State& state) {
    const Data& file = bytes();
    for ([[maybe_unused]] auto iteration : state) {
        plist_t root = nullptr;
        plist_from_bin(reinterpret_cast<const char*>(file.data()), static_cast<std::uint32_t>(file.size()),
                       &root);
        untimed(state, [&] {
            if (plist_array_get_size(root) != fileCount)
                state.SkipWithError("libplist did not read the file");
            plist_free(root);
        });
    }
}
BENCHMARK(readFileDictionariesByLibplist)->Unit(benchmark::kMillisecond);

// Each writer writes the list as its own reader has read it from the same file.
void writeFileDictionaries(benchmark::State& state) {
    const Value value = readBinaryPropertyList(bytes()).value;
    for ([[maybe_unused]] auto iteration : state) {
        PropertyListWriting writing = writeBinaryPropertyList(value);
        untimed(state, [&] {
            if (writing.bytes != bytes())
                state.SkipWithError("the written file differs");
            writing = {};
        });
    }
}
BENCHMARK(writeFileDictionaries)->Unit(benchmark::kMillisecond);

// The time in seconds that CPython's plistlib takes to write what it read from `path`.
double pythonSeconds(const std::string& path) {
    const std::string command = "/usr/bin/python3 -c 'import plistlib, sys, time\n"
                                "value = plistlib.load(open(sys.argv[1], \"rb\"))\n"
                                "start = time.perf_counter()\n"
                                "plistlib.dumps(value, fmt=plistlib.FMT_BINARY)\n"
                                "print(time.perf_counter() - start)' " +
                                path;
    std::array<char, 64> output{};
    FILE* python = ::popen(command.c_str(), "r");
    const bool hasOutput = python != nullptr && std::fgets(output.data(), output.size(), python) != nullptr;
    if (python == nullptr || ::pclose(python) != 0 || !hasOutput)
        throw std::runtime_error("python did not write the file");
    return std::strtod(output.data(), nullptr);
}

void writeFileDictionariesByPython(benchmark::State& state) {
    const tests::TemporaryFolder folder;
    const std::string path =
        folder.write("files", {reinterpret_cast<const char*>(bytes().data()), bytes().size()});
    for ([[maybe_unused]] auto iteration : state)
        state.SetIterationTime(pythonSeconds(path));
}
BENCHMARK(writeFileDictionariesByPython)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1);

} // namespace
} // namespace kelvane::bench
