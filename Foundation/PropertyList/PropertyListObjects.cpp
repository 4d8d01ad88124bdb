#include "Foundation/PropertyList/PropertyListObjects.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace kelvane {
namespace {

constexpr PropertyListObjects::Id noObject = std::numeric_limits<PropertyListObjects::Id>::max();

constexpr std::size_t fewestPlaces = 64;
// With more objects, references keep their four bytes.
constexpr std::size_t mostNarrowed = 0x10000;
// After so many probes an object is written again, which bounds the cost of texts made to collide.
constexpr std::size_t longestSearch = 256;

void appendTo(Data& bytes, std::span<const std::uint8_t> part) {
    bytes.insert(bytes.end(), part.begin(), part.end());
}

} // namespace

PropertyListObjects::PropertyListObjects()
    : bytes_(layout::header.begin(), layout::header.end()), places_(fewestPlaces, Place{0, noObject}) {}

PropertyListObjects::Id PropertyListObjects::unique(const Encoding& encoding, std::uint32_t hash) {
    if (2 * (taken_ + 1) > places_.size())
        growPlaces();
    for (std::size_t probe = 0; probe < longestSearch; ++probe) {
        Place& place = places_[(hash + probe) & (places_.size() - 1)];
        if (place.id == noObject) {
            ++taken_;
            place = {hash, add(encoding, 0)};
            return place.id;
        }
        if (place.hash == hash && holds(place.id, encoding))
            return place.id;
    }
    return add(encoding, 0);
}

void PropertyListObjects::expect(std::uint32_t hash) const {
    __builtin_prefetch(&places_[hash & (places_.size() - 1)], 1);
}

PropertyListObjects::Container PropertyListObjects::addContainer(layout::Type type, std::size_t count) {
    Encoding head;
    head.setHead(type, count);
    Container container{0, type == layout::Type::Dictionary ? 2 * count : count, 0};
    container.id = add(head, container.references);
    container.slots = bytes_.size() - container.references * slotSize;
    if (offsets_.size() <= mostNarrowed)
        containers_.push_back(container);
    return container;
}

void PropertyListObjects::setReference(std::size_t slot, Id object) {
    const Id swapped = __builtin_bswap32(object);
    std::memcpy(bytes_.data() + slot, &swapped, slotSize);
}

PropertyListObjects::Id PropertyListObjects::reference(std::size_t slot) const {
    Id swapped = 0;
    std::memcpy(&swapped, bytes_.data() + slot, slotSize);
    return __builtin_bswap32(swapped);
}

Data PropertyListObjects::finish(Id top) {
    const unsigned referenceWidth = widthOf(offsets_.size() - 1);
    if (referenceWidth < slotSize)
        narrowReferences(referenceWidth);
    const std::uint64_t tableOffset = bytes_.size();
    const unsigned offsetWidth = widthOf(tableOffset);
    bytes_.resize(tableOffset + offsets_.size() * offsetWidth + layout::trailerSize);
    std::uint8_t* at = bytes_.data() + tableOffset;
    for (const std::uint64_t offset : offsets_) {
        layout::writeNumber(at, offset, offsetWidth);
        at += offsetWidth;
    }
    layout::writeTrailer(at, {.offsetWidth = offsetWidth,
                              .referenceWidth = referenceWidth,
                              .objectCount = offsets_.size(),
                              .topObject = top,
                              .tableOffset = tableOffset});
    return std::move(bytes_);
}

PropertyListObjects::Id PropertyListObjects::add(const Encoding& encoding, std::size_t references) {
    if (offsets_.size() == noObject)
        throw std::length_error("more objects than a reference can tell apart");
    const std::size_t size = bytes_.size() + encoding.size() + references * slotSize;
    if (size > bytes_.capacity())
        bytes_.reserve(4 * size); // to copy rarely; the system provides no memory for pages never written
    offsets_.push_back(bytes_.size());
    appendTo(bytes_, encoding.head());
    appendTo(bytes_, encoding.content());
    bytes_.resize(size);
    return static_cast<Id>(offsets_.size() - 1);
}

// The encoding of an object determines its length, so that no object is a prefix of another.
bool PropertyListObjects::holds(Id id, const Encoding& encoding) const {
    return bytes_.size() - offsets_[id] >= encoding.size() && encoding.isAt(bytes_.data() + offsets_[id]);
}

void PropertyListObjects::growPlaces() {
    const std::vector<Place> former =
        std::exchange(places_, std::vector<Place>(2 * places_.size(), Place{0, noObject}));
    for (const Place& place : former) {
        if (place.id == noObject)
            continue;
        std::size_t at = place.hash & (places_.size() - 1);
        while (places_[at].id != noObject)
            at = (at + 1) & (places_.size() - 1);
        places_[at] = place;
    }
}

// Shortens the references and moves the objects toward the front, one by one.
void PropertyListObjects::narrowReferences(unsigned width) {
    auto container = containers_.begin();
    std::size_t to = layout::header.size();
    for (std::size_t id = 0; id < offsets_.size(); ++id) {
        const std::size_t end = id + 1 < offsets_.size() ? offsets_[id + 1] : bytes_.size();
        const bool isContainer = container != containers_.end() && container->id == id;
        std::size_t from = std::exchange(offsets_[id], to);
        const std::size_t plain = (isContainer ? container->slots : end) - from;
        std::memmove(bytes_.data() + to, bytes_.data() + from, plain);
        to += plain;
        for (from += plain; from < end; from += slotSize, to += width)
            std::memmove(bytes_.data() + to, bytes_.data() + from + slotSize - width, width);
        if (isContainer)
            ++container;
    }
    bytes_.resize(to);
}

} // namespace kelvane
