#include "Foundation/Checksum.h"
#include "LocalDaemon/Index/BackupIndex.h"

#include <cstring>
#include <limits>

// File format: magic number, repository id, snapshots, then the items in order, each with the position
// of its folder, and a checksum of everything before it. Numbers are little-endian.
namespace kelvane {
namespace {

constexpr std::string_view mark = "kelvane index 3\n";
// The kinds of snapshot records. A record "with paths" is followed by the list of paths that the snapshot
// lacks.
constexpr std::uint8_t completeWithoutPaths = 0;
constexpr std::uint8_t partialWithoutPaths = 1;
constexpr std::uint8_t partialWithPaths = 2;
constexpr std::uint8_t completeWithPaths = 3;

std::uint8_t kindOf(const Snapshot& snapshot) {
    if (snapshot.lacks.empty())
        return snapshot.isPartial ? partialWithoutPaths : completeWithoutPaths;
    return snapshot.isPartial ? partialWithPaths : completeWithPaths;
}

class Writer {
public:
    explicit Writer(std::vector<std::uint8_t>& bytes) : bytes_(bytes) {}

    template <class Number>
    void number(Number value) {
        auto rest = static_cast<std::uint64_t>(value);
        for (std::size_t each = 0; each < sizeof(Number); ++each, rest >>= 8U)
            bytes_.push_back(static_cast<std::uint8_t>(rest));
    }
    void time(FileTime value) {
        number(value.seconds());
        number(value.nanoseconds());
    }
    void raw(std::string_view value) { bytes_.insert(bytes_.end(), value.begin(), value.end()); }
    void text(std::string_view value) {
        number(static_cast<std::uint16_t>(value.size()));
        raw(value);
    }

private:
    std::vector<std::uint8_t>& bytes_;
};

// Reads past the end yield 0 or an empty text, and `isWhole` then returns false.
class Reader {
public:
    explicit Reader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    template <class Number>
    void number(Number& value) {
        const auto part = take(sizeof(Number));
        std::uint64_t read = 0;
        for (std::size_t each = part.size(); each > 0; --each)
            read = read << 8U | part[each - 1];
        value = static_cast<Number>(read);
    }
    void time(FileTime& value) {
        std::int64_t seconds = 0;
        std::uint32_t nanoseconds = 0;
        number(seconds);
        number(nanoseconds);
        value = FileTime(seconds, nanoseconds);
    }
    [[nodiscard]] std::string_view text() {
        std::uint16_t size = 0;
        number(size);
        const auto part = take(size);
        return {reinterpret_cast<const char*>(part.data()), part.size()};
    }
    [[nodiscard]] bool isWhole() const { return isWhole_; }
    [[nodiscard]] std::size_t left() const { return bytes_.size(); }

private:
    std::span<const std::uint8_t> take(std::size_t size) {
        if (size > bytes_.size()) {
            isWhole_ = false;
            return {};
        }
        const auto part = bytes_.first(size);
        bytes_ = bytes_.subspan(size);
        return part;
    }

    std::span<const std::uint8_t> bytes_;
    bool isWhole_ = true;
};

// Returns the bytes between magic number and checksum, nothing when either is wrong.
std::optional<std::span<const std::uint8_t>> bodyOf(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < mark.size() + sizeof(std::uint64_t) ||
        std::memcmp(bytes.data(), mark.data(), mark.size()) != 0)
        return std::nullopt;
    const auto before = bytes.first(bytes.size() - sizeof(std::uint64_t));
    std::uint64_t checksum = 0;
    Reader(bytes.last(sizeof(std::uint64_t))).number(checksum);
    if (checksum != checksumOf(before))
        return std::nullopt;
    return before.subspan(mark.size());
}

// Encodes or decodes the numbers of an item.
template <class Stream, class Item>
void transfer(Stream& stream, Item& item) {
    stream.number(item.size);
    stream.time(item.modified);
    stream.time(item.changed);
    stream.number(item.backedUp);
    stream.number(item.version);
    stream.number(item.snapshot);
    stream.number(item.uid);
    stream.number(item.gid);
    stream.number(item.mode);
}

Snapshot snapshotFrom(Reader& reader) {
    Snapshot snapshot;
    std::uint8_t kind = 0;
    snapshot.id = reader.text();
    reader.number(snapshot.time);
    reader.number(kind);
    reader.number(snapshot.sequence);
    snapshot.isPartial = kind == partialWithoutPaths || kind == partialWithPaths;
    std::uint32_t lackCount = 0;
    if (kind == partialWithPaths || kind == completeWithPaths)
        reader.number(lackCount);
    for (; lackCount > 0 && reader.isWhole(); --lackCount)
        snapshot.lacks.emplace_back(reader.text());
    return snapshot;
}

} // namespace

std::vector<std::uint8_t> BackupIndex::encoded() const {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(items_.size() * 64 + names_.size());
    Writer writer(bytes);
    writer.raw(mark);
    writer.text(repositoryId_);
    writer.number(static_cast<std::uint32_t>(snapshots_.size()));
    for (const auto& [number, snapshot] : snapshots_) {
        writer.number(number);
        writer.text(snapshot.id);
        writer.number(snapshot.time);
        writer.number(kindOf(snapshot));
        writer.number(snapshot.sequence);
        if (snapshot.lacks.empty())
            continue;
        writer.number(static_cast<std::uint32_t>(snapshot.lacks.size()));
        for (const std::string& path : snapshot.lacks)
            writer.text(path);
    }
    for (const Item& item : items_) {
        writer.number(item.parent);
        writer.text(nameOf(item));
        writer.number(static_cast<std::uint8_t>(item.kind));
        transfer(writer, item);
    }
    writer.number(checksumOf(bytes));
    return bytes;
}

std::optional<BackupIndex> BackupIndex::decoded(std::span<const std::uint8_t> bytes) {
    const auto body = bodyOf(bytes);
    if (!body)
        return std::nullopt;
    Reader reader(*body);
    BackupIndex index;
    index.items_.clear();
    index.repositoryId_ = reader.text();
    std::uint32_t snapshotCount = 0;
    reader.number(snapshotCount);
    for (; snapshotCount > 0 && reader.isWhole(); --snapshotCount) {
        std::uint32_t number = 0;
        reader.number(number);
        index.snapshots_[number] = snapshotFrom(reader);
    }
    while (reader.left() > 0 && reader.isWhole()) {
        Item item;
        reader.number(item.parent);
        const std::string_view name = reader.text();
        std::uint8_t kind = 0;
        reader.number(kind);
        transfer(reader, item);
        if (!index.takeDecoded(item, name, kind))
            return std::nullopt;
    }
    if (!reader.isWhole() || index.items_.empty())
        return std::nullopt;
    index.sumUp();
    return index;
}

// Returns false when the item does not fit after the previous ones.
bool BackupIndex::takeDecoded(Item item, std::string_view name, std::uint8_t kind) {
    const std::size_t place = items_.size();
    const bool isRoot = place == 0;
    if (kind > static_cast<std::uint8_t>(ItemKind::Link) || (!isRoot && item.parent >= place) ||
        (place > 1 && item.parent < items_.back().parent) ||
        place == std::numeric_limits<std::uint32_t>::max())
        return false;
    item.kind = static_cast<ItemKind>(kind);
    item.nameOffset = names_.size();
    item.nameLength = static_cast<std::uint16_t>(name.size());
    names_ += name;
    items_.push_back(item);
    if (isRoot)
        return true;
    Item& parent = items_[item.parent];
    if (parent.childCount++ == 0)
        parent.firstChild = static_cast<std::uint32_t>(place);
    return true;
}

} // namespace kelvane
