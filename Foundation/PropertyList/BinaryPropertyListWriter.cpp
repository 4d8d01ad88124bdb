#include "Foundation/PropertyList/BinaryPropertyList.h"

#include "Foundation/PropertyList/PropertyListObjects.h"

#include <algorithm>
#include <array>
#include <optional>
#include <unordered_map>

namespace kelvane {
namespace {

using layout::Type;
using Keys = Dictionary::Keys;
using Id = PropertyListObjects::Id;

constexpr const char* notUtf8 = "a string is not UTF-8";

bool isContainer(const Value& value) {
    return value.isArray() || value.isDictionary();
}

// Writes one value and its contents. A function that returns false or none has called `refuse` with the
// reason.
class Writer {
public:
    PropertyListWriting write(const Value& root) {
        const std::optional<Id> top = isContainer(root) ? container(root, 0) : plain(root);
        if (!top)
            return {{}, error_};
        return {objects_.finish(*top), {}};
    }

private:
    // An array or dictionary that several values share. `levels` is 0 while it is being written.
    struct SharedContainer {
        Id id = 0;
        int levels = 0;
    };

    // A value that will be looked up among those already written.
    struct Prepared {
        Encoding encoding;
        std::uint32_t hash = 0;
        std::size_t slot = 0;
    };

    std::nullopt_t refuse(const char* reason) {
        error_ = reason;
        return std::nullopt;
    }

    std::optional<Id> plain(const Value& value);
    std::optional<Id> container(const Value& value, int depth);
    std::optional<Id> unsharedContainer(const Value& value, int depth);

    // These set the references from `slot` on.
    bool keys(const Keys& keys, std::size_t slot);
    bool contents(std::span<const Value> values, int depth, std::size_t slot);
    bool plainValues(std::span<const Value> values, std::size_t slot);
    bool prepare(const Value& value, std::size_t slot, Prepared& prepared);
    bool containers(std::span<const Value> values, int depth, std::size_t slot);

    PropertyListObjects objects_;
    const char* error_ = "";
    std::unordered_map<const void*, SharedContainer> shared_;
    int levels_ = 0; // nesting depth of the deepest container found so far inside the current one
    // The last dictionary's keys and the last container's values, cached with their reference positions so
    // that the references can be reused: the next container usually has the same keys, and many equal values
    // at the same positions.
    const Keys* lastKeys_ = nullptr;
    std::size_t lastKeysSlot_ = 0;
    std::span<const Value> lastValues_;
    std::size_t lastValuesSlot_ = 0;
    std::array<Prepared, 16> batch_;
};

std::optional<Id> Writer::plain(const Value& value) {
    Encoding encoding;
    if (!encoding.set(value))
        return refuse(value.isAbsent() ? "a value is absent" : notUtf8);
    return objects_.unique(encoding, encoding.hash());
}

std::optional<Id> Writer::container(const Value& value, int depth) {
    if (!value.isShared())
        return unsharedContainer(value, depth);
    const void* identity = value.isArray() ? static_cast<const void*>(&value.array()) : &value.dictionary();
    const auto [found, isNew] = shared_.try_emplace(identity);
    SharedContainer& known = found->second; // does not move when others are added
    if (isNew) {
        const int levelsBefore = std::exchange(levels_, 0);
        const std::optional<Id> id = unsharedContainer(value, depth);
        if (!id)
            return std::nullopt;
        known = {*id, levels_};
        levels_ = std::max(levels_, levelsBefore);
        return id;
    }
    if (known.levels == 0)
        return refuse("a container contains itself");
    if (depth + known.levels > deepestNesting)
        return refuse(layout::tooDeep);
    levels_ = std::max(levels_, known.levels);
    return known.id;
}

std::optional<Id> Writer::unsharedContainer(const Value& value, int depth) {
    if (depth == deepestNesting)
        return refuse(layout::tooDeep);
    const int levelsBefore = std::exchange(levels_, 0);
    PropertyListObjects::Container container;
    if (value.isDictionary()) {
        const Dictionary& entries = value.dictionary();
        container = objects_.addContainer(Type::Dictionary, entries.size());
        const std::size_t valuesSlot = container.slots + entries.size() * PropertyListObjects::slotSize;
        if (!keys(entries.keys(), container.slots) || !contents(entries.values(), depth + 1, valuesSlot))
            return std::nullopt;
    } else {
        container = objects_.addContainer(Type::Array, value.size());
        if (!contents(value.array(), depth + 1, container.slots))
            return std::nullopt;
    }
    levels_ = std::max(levels_ + 1, levelsBefore);
    return container.id;
}

bool Writer::keys(const Keys& keys, std::size_t slot) {
    const Keys* last = std::exchange(lastKeys_, &keys);
    std::size_t lastSlot = std::exchange(lastKeysSlot_, slot);
    for (std::size_t i = 0; i < keys.size(); ++i) {
        const bool isAsBefore = last == &keys || (last && i < last->size() && (*last)[i] == keys[i]);
        if (isAsBefore) {
            objects_.setReference(slot, objects_.reference(lastSlot));
        } else {
            Encoding key;
            if (!key.setString(keys[i])) {
                refuse(notUtf8);
                return false;
            }
            objects_.setReference(slot, objects_.unique(key, key.hash()));
        }
        slot += PropertyListObjects::slotSize;
        lastSlot += PropertyListObjects::slotSize;
    }
    return true;
}

bool Writer::contents(std::span<const Value> values, int depth, std::size_t slot) {
    while (!values.empty()) {
        const auto part = values.first(std::min(values.size(), batch_.size()));
        if (!plainValues(part, slot) || !containers(part, depth, slot))
            return false;
        slot += part.size() * PropertyListObjects::slotSize;
        values = values.subspan(part.size());
    }
    return true;
}

bool Writer::plainValues(std::span<const Value> values, std::size_t slot) {
    const std::span<const Value> last = std::exchange(lastValues_, values);
    std::size_t lastSlot = std::exchange(lastValuesSlot_, slot);
    std::size_t count = 0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (!isContainer(values[i])) {
            if (i < last.size() && values[i].isSameAs(last[i]))
                objects_.setReference(slot, objects_.reference(lastSlot));
            else if (!prepare(values[i], slot, batch_[count++]))
                return false;
        }
        slot += PropertyListObjects::slotSize;
        lastSlot += PropertyListObjects::slotSize;
    }
    for (const Prepared& value : std::span(batch_).first(count))
        objects_.setReference(value.slot, objects_.unique(value.encoding, value.hash));
    return true;
}

bool Writer::prepare(const Value& value, std::size_t slot, Prepared& prepared) {
    if (!prepared.encoding.set(value)) {
        refuse(value.isAbsent() ? "a value is absent" : notUtf8);
        return false;
    }
    prepared.hash = prepared.encoding.hash();
    prepared.slot = slot;
    objects_.expect(prepared.hash);
    return true;
}

bool Writer::containers(std::span<const Value> values, int depth, std::size_t slot) {
    for (const Value& value : values) {
        if (isContainer(value)) {
            const std::optional<Id> id = container(value, depth);
            if (!id)
                return false;
            objects_.setReference(slot, *id);
        }
        slot += PropertyListObjects::slotSize;
    }
    return true;
}

} // namespace

PropertyListWriting writeBinaryPropertyList(const Value& value) {
    return Writer().write(value);
}

} // namespace kelvane
