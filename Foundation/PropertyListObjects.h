#pragma once

#include "Foundation/BinaryPropertyListEncoding.h"

#include <cstdint>
#include <vector>

namespace kelvane {

// The objects of a binary property list that is being written, in the order in which they came. References to
// them take four bytes each until `finish`, when it is known how many objects there are and how few bytes
// will do.
class PropertyListObjects {
public:
    using Id = std::uint32_t; // an object's place in the offset table

    struct Container {
        Id id = 0;
        std::size_t references = 0; // how many
        std::size_t slots = 0;      // where the references stand, to be set one by one
    };
    static constexpr std::size_t slotSize = sizeof(Id);

    PropertyListObjects();

    // The object with these bytes, which is added when there is none. `hash` is the encoding's.
    [[nodiscard]] Id unique(const Encoding& encoding, std::uint32_t hash);
    // Says that `unique` is going to be asked for that hash: asking for several at once hides the wait for
    // memory.
    void expect(std::uint32_t hash) const;

    [[nodiscard]] Container addContainer(layout::Type type, std::size_t count);
    void setReference(std::size_t slot, Id object);
    [[nodiscard]] Id reference(std::size_t slot) const;

    // The whole property list. Ends the use of these objects.
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
    std::vector<Container> containers_;  // as long as their references may be narrowed
    // A hash table of what `unique` added; its size is a power of two, and at most half of it is taken.
    std::vector<Place> places_;
    std::size_t taken_ = 0;
};

} // namespace kelvane
