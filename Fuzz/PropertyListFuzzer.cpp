// Every accepted list must be writable, and must be read back as the same value with the same types.

#include "Foundation/PropertyList/BinaryPropertyList.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace kelvane;
    const PropertyListReading first = readBinaryPropertyList({bytes, size});
    if (first.succeeded() == first.value.isAbsent())
        std::abort();
    if (!first.succeeded())
        return 0;
    const PropertyListWriting written = writeBinaryPropertyList(first.value);
    const PropertyListReading second = readBinaryPropertyList(written.bytes);
    if (!written.succeeded() || !second.succeeded() ||
        writeBinaryPropertyList(second.value).bytes != written.bytes)
        std::abort();
    // Equality compares every expansion of a shared container, which takes too long here.
    if (first.value.description().size() < 64 * (size + 1024) && !(second.value == first.value))
        std::abort();
    return 0;
}
