#include "LocalDaemon/Restic/ResticJson.h"

#include "Foundation/CleanPath.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

namespace kelvane {
namespace {

using Json = nlohmann::json;

constexpr std::size_t decimals = 9;
// restic writes these mode bits in other positions.
constexpr std::pair<std::uint32_t, std::uint16_t> modeBits[] = {
    {1U << 23U, S_ISUID}, {1U << 22U, S_ISGID}, {1U << 20U, S_ISVTX}};

Json parsed(std::string_view text) {
    return Json::parse(text.begin(), text.end(), nullptr, false);
}

// Returns null when it is not an object or has no such entry.
const Json* entryOf(const Json& object, const char* key) {
    if (!object.is_object())
        return nullptr;
    const auto entry = object.find(key);
    return entry == object.end() ? nullptr : &*entry;
}

std::string textOf(const Json& object, const char* key) {
    const Json* const entry = entryOf(object, key);
    return entry && entry->is_string() ? entry->get<std::string>() : std::string();
}

std::uint64_t numberOf(const Json& object, const char* key) {
    const Json* const entry = entryOf(object, key);
    return entry && entry->is_number_unsigned() ? entry->get<std::uint64_t>() : 0;
}

FileTime timeOf(const Json& object, const char* key) {
    return timeFrom(textOf(object, key)).value_or(FileTime());
}

// Parses a number of exactly so many digits at the beginning of the text, and removes it from the text.
std::optional<int> takeNumber(std::string_view& text, std::size_t digits) {
    int number = 0;
    if (text.size() < digits)
        return std::nullopt;
    const auto [end, error] = std::from_chars(text.data(), text.data() + digits, number);
    if (error != std::errc() || end != text.data() + digits || number < 0)
        return std::nullopt;
    text.remove_prefix(digits);
    return number;
}

bool take(std::string_view& text, char wanted) {
    if (!text.starts_with(wanted))
        return false;
    text.remove_prefix(1);
    return true;
}

// Parses "2025-01-02T03:04:05" into seconds since 1970.
std::optional<std::int64_t> takeSeconds(std::string_view& text) {
    constexpr std::array<std::pair<std::size_t, char>, 6> fields{
        {{4, '-'}, {2, '-'}, {2, 'T'}, {2, ':'}, {2, ':'}, {2, '\0'}}};
    std::array<int, 6> numbers{};
    for (std::size_t at = 0; at < fields.size(); ++at) {
        const auto number = takeNumber(text, fields[at].first);
        if (!number || (fields[at].second != '\0' && !take(text, fields[at].second)))
            return std::nullopt;
        numbers[at] = *number;
    }
    const std::chrono::year_month_day day{std::chrono::year(numbers[0]),
                                          std::chrono::month(static_cast<unsigned>(numbers[1])),
                                          std::chrono::day(static_cast<unsigned>(numbers[2]))};
    if (!day.ok())
        return std::nullopt;
    const auto time = std::chrono::sys_days(day).time_since_epoch() + std::chrono::hours(numbers[3]) +
                      std::chrono::minutes(numbers[4]) + std::chrono::seconds(numbers[5]);
    return std::chrono::duration_cast<std::chrono::seconds>(time).count();
}

std::uint32_t takeDecimals(std::string_view& text) {
    std::uint32_t nanoseconds = 0;
    std::size_t count = 0;
    if (!take(text, '.'))
        return 0;
    for (; !text.empty() && text[0] >= '0' && text[0] <= '9'; text.remove_prefix(1))
        if (count++ < decimals)
            nanoseconds = nanoseconds * 10 + static_cast<std::uint32_t>(text[0] - '0');
    for (; count < decimals; ++count)
        nanoseconds *= 10;
    return nanoseconds;
}

// Parses the offset from UTC in seconds, positive east of Greenwich.
std::optional<std::int64_t> takeOffset(std::string_view& text) {
    if (take(text, 'Z'))
        return 0;
    const bool isWest = text.starts_with('-');
    if (!take(text, '+') && !take(text, '-'))
        return std::nullopt;
    const auto hours = takeNumber(text, 2);
    const bool hasColon = take(text, ':');
    const auto minutes = takeNumber(text, 2);
    if (!hours || !hasColon || !minutes)
        return std::nullopt;
    const std::int64_t seconds = std::int64_t{*hours} * 3600 + std::int64_t{*minutes} * 60;
    return isWest ? -seconds : seconds;
}

std::uint64_t sequenceIn(std::string_view tag) {
    std::uint64_t sequence = 0;
    if (!tag.starts_with(sequenceTagStart))
        return 0;
    const auto [end, error] =
        std::from_chars(tag.data() + sequenceTagStart.size(), tag.data() + tag.size(), sequence);
    const bool isNumber = error == std::errc() && end == tag.data() + tag.size();
    return isNumber && sequence <= highestSequence ? sequence : 0;
}

std::uint16_t modeOf(const Json& object) {
    const std::uint64_t saved = numberOf(object, "mode");
    auto mode = static_cast<std::uint16_t>(saved & (S_IRWXU | S_IRWXG | S_IRWXO));
    for (const auto& [bit, meaning] : modeBits)
        if ((saved & bit) != 0)
            mode |= meaning;
    return mode;
}

Snapshot snapshotOf(const Json& object, std::string_view partialTag) {
    Snapshot snapshot;
    snapshot.id = textOf(object, "id");
    snapshot.time = timeOf(object, "time").seconds();
    snapshot.parent = textOf(object, "parent");
    snapshot.tree = textOf(object, "tree");
    const Json* const tags = entryOf(object, "tags");
    if (!tags || !tags->is_array())
        return snapshot;
    for (const Json& each : *tags) {
        const std::string tag = each.is_string() ? each.get<std::string>() : std::string();
        snapshot.isPartial = snapshot.isPartial || tag == partialTag;
        if (tag == movedTag)
            snapshot.lacks = {everything};
        snapshot.sequence = std::max(snapshot.sequence, sequenceIn(tag));
    }
    return snapshot;
}

std::optional<ItemKind> kindFrom(std::string_view type) {
    if (type == "file")
        return ItemKind::File;
    if (type == "dir")
        return ItemKind::Folder;
    if (type == "symlink")
        return ItemKind::Link;
    return std::nullopt;
}

BackupLine statusLine(const Json& object) {
    BackupLine line;
    const std::string action = textOf(object, "action");
    if (action == "new" || action == "modified" || action == "unchanged") {
        line.kind = BackupLine::Kind::Item;
        line.path = textOf(object, "item");
        line.isFile = !line.path.ends_with('/');
        line.isChanged = action != "unchanged";
        line.size = numberOf(object, "data_size");
    } else if (action.empty()) {
        line.kind = BackupLine::Kind::Status;
        line.filesDone = numberOf(object, "files_done");
        line.bytesDone = numberOf(object, "bytes_done");
        if (const Json* const files = entryOf(object, "current_files");
            files && files->is_array() && !files->empty() && files->front().is_string())
            line.path = files->front().get<std::string>();
    }
    return line;
}

} // namespace

std::optional<FileTime> timeFrom(std::string_view text) {
    const auto seconds = takeSeconds(text);
    if (!seconds)
        return std::nullopt;
    const std::uint32_t nanoseconds = takeDecimals(text);
    const auto offset = takeOffset(text);
    if (!offset || !text.empty())
        return std::nullopt;
    return FileTime(*seconds - *offset, nanoseconds);
}

std::string textEntry(std::string_view json, const char* key) {
    return textOf(parsed(json), key);
}

std::optional<std::vector<Snapshot>> snapshotsFrom(std::string_view json, std::string_view partialTag) {
    const Json list = parsed(json);
    if (!list.is_array())
        return std::nullopt;
    std::vector<Snapshot> snapshots;
    for (const Json& each : list)
        snapshots.push_back(snapshotOf(each, partialTag));
    if (std::ranges::any_of(snapshots, [](const Snapshot& each) { return each.id.empty(); }))
        return std::nullopt;
    return inOrderOfCreation(std::move(snapshots));
}

std::optional<Snapshot> snapshotFrom(std::string_view line) {
    const Json object = parsed(line);
    if (textOf(object, "struct_type") != "snapshot")
        return std::nullopt;
    return snapshotOf(object, {});
}

std::optional<ListedItem> itemFrom(std::string_view line) {
    const Json object = parsed(line);
    const std::string type = textOf(object, "type");
    const auto kind = kindFrom(type);
    ListedItem listed{{}, kind.has_value()};
    SnapshotItem& item = listed.item;
    item.path = textOf(object, "path");
    if (type.empty() || !item.path.starts_with('/'))
        return std::nullopt;
    item.kind = kind.value_or(ItemKind::File);
    item.size = numberOf(object, "size");
    item.modified = timeOf(object, "mtime");
    item.changed = timeOf(object, "ctime");
    item.uid = static_cast<std::uint32_t>(numberOf(object, "uid"));
    item.gid = static_cast<std::uint32_t>(numberOf(object, "gid"));
    item.mode = modeOf(object);
    return listed;
}

std::size_t lineBreaksInPathsOf(std::string_view snapshotLine) {
    const Json object = parsed(snapshotLine);
    const Json* const paths = entryOf(object, "paths");
    std::size_t count = 0;
    if (paths && paths->is_array())
        for (const Json& path : *paths)
            if (path.is_string())
                count +=
                    static_cast<std::size_t>(std::ranges::count(path.get_ref<const std::string&>(), '\n'));
    return count;
}

std::optional<std::vector<FoundItem>> foundItemsFrom(std::string_view json) {
    const Json list = parsed(json);
    if (!list.is_array())
        return std::nullopt;
    std::vector<FoundItem> items;
    for (const Json& entry : list)
        items.push_back({textOf(entry, "snapshot"), textOf(entry, "path")});
    return items;
}

std::optional<RepositoryLock> lockFrom(std::string_view json) {
    const Json object = parsed(json);
    if (!object.is_object())
        return std::nullopt;
    return RepositoryLock{.id = {},
                          .hostName = textOf(object, "hostname"),
                          .pid = static_cast<std::int32_t>(numberOf(object, "pid")),
                          .time = timeOf(object, "time").seconds()};
}

BackupLine backupLineFrom(std::string_view text) {
    const Json object = parsed(text);
    const std::string type = textOf(object, "message_type");
    BackupLine line;
    if (type == "status" || type == "verbose_status")
        return statusLine(object);
    if (type == "summary") {
        line.kind = BackupLine::Kind::Summary;
        line.snapshotId = textOf(object, "snapshot_id");
    } else if (type == "error") {
        line.kind = BackupLine::Kind::Error;
        line.path = textOf(object, "item");
        const Json* const error = entryOf(object, "error");
        line.isDeleted = error && numberOf(*error, "Err") == ENOENT;
        line.hasNoReason = error && error->is_object() && error->empty();
    }
    return line;
}

} // namespace kelvane
