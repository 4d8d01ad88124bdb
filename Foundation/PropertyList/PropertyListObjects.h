#pragma once

#include "Foundation/PropertyList/BinaryPropertyListEncoding.h"

#include <cstdint>
#include <vector>

namespace kelvane {

// The objects of a binary property list that is being written, in the order in which they were added.
// References take four bytes each until `finish`, when the number of objects is known and they are narrowed
// to the smallest sufficient width.
class PropertyListObjects {
public:
    using Id = std::uint32_t; // the index of an object in the offset table

    struct Container {
        Id id = 0;
        std::size_t references = 0; // their number
        std::size_t slots = 0;      // byte position of the first reference, for `setReference`
    };
    static constexpr std::size_t slotSize = sizeof(Id);

    PropertyListObjects();

    // Returns the object with these bytes and adds it if there is none. `hash` is that of the encoding.
    [[nodiscard]] Id unique(const Encoding& encoding, std::uint32_t hash);
    // Prefetches the table entry for a later call of `unique` with this hash. Prefetching several entries at
    // once hides the latency of memory.
    void expect(std::uint32_t hash) const;

    [[nodiscard]] Container addContainer(layout::Type type, std::size_t count);
    void setReference(std::size_t slot, Id object);
    [[nodiscard]] Id reference(std::size_t slot) const;

    // Returns the complete property list. No other function may be called afterwards.
    [[nodiscard]] Data finish(Id top);

private:
    struct Place {
        std::uint32_t hash = 0;
        Id id = 0;
    };

    Id add(const Encoding& encoding, std::size_t references);
    [[nodiscard]] bool holds(Id id, const Encoding& encoding) const;
    void growPlaces();
    void narrowReferences(unsigned width);

    Data bytes_;
    std::vector<std::uint64_t> offsets_; // by object
    std::vector<Container> containers_;  // those whose references `finish` may narrow
    // A hash table of what `unique` has added. Its size is a power of two, and at most half of it is in use.
    std::vector<Place> places_;
    std::size_t taken_ = 0;
};

} // namespace kelvane
