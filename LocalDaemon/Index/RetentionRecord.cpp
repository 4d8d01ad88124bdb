#include "LocalDaemon/Index/RetentionRecord.h"

#include "Support/Logging.h"
#include "Support/Preferences/CheckedFile.h"
#include "Support/Preferences/DamagedFile.h"

#include <algorithm>
#include <cstdlib>

namespace kelvane {
namespace {

constexpr std::size_t largestFile = std::size_t{16} << 20U;
constexpr std::string_view recordKey = "record";
constexpr std::int64_t hour = 3600; // In seconds.
constexpr std::int64_t day = 24 * hour;

// A smaller change may be a wrong time zone or a correction; keeping everything a day longer compensates
// for it.
constexpr std::int64_t largestCorrection = day;
// If the clock was set while the machine was off, the time that it was off is unknown. Up to a long
// weekend is believed.
constexpr std::int64_t longestBelievedOff = 4 * day;
constexpr std::chrono::days longerForCorrections{1};
// Seconds before and after 1970 that a clock can show.
constexpr std::int64_t latestTime = std::int64_t{1} << 50U;

struct DecisionName {
    RetentionRecord::Decision decision;
    std::string_view name;
};
constexpr DecisionName decisionNames[] = {{RetentionRecord::Decision::None, ""},
                                          {RetentionRecord::Decision::Keep, "keep"},
                                          {RetentionRecord::Decision::Forget, "forget"}};

std::int64_t timeIn(const Value& value) {
    return std::clamp(value.int64Value(), -latestTime, latestTime);
}

Value valueOf(const Disappearance& each, RetentionRecord::Decision decision) {
    const auto* const name = std::ranges::find(decisionNames, decision, &DecisionName::decision);
    return Dictionary{{"id", each.id},
                      {"time", each.time},
                      {"snapshots", Array(each.snapshots.begin(), each.snapshots.end())},
                      {"files", each.files},
                      {"of", each.of},
                      {"decision", std::string(name->name)}};
}

Disappearance disappearanceFrom(const Value& value) {
    Disappearance read{.id = value["id"].stringValue(),
                       .time = timeIn(value["time"]),
                       .snapshots = {},
                       .files = value["files"].uint64Value(),
                       .of = value["of"].uint64Value()};
    for (const Value& id : value["snapshots"].array())
        read.snapshots.insert(id.stringValue());
    return read;
}

} // namespace

RetentionRecord::RetentionRecord(std::string path, MachineClock clock)
    : path_(std::move(path)),
      clock_(std::move(clock)),
      contents_(read(path_)),
      saved_(contents_),
      present_(&contents_.repositories[""]) {}

// Records made before the id was known belong to the first repository that is found.
void RetentionRecord::setRepository(const std::string& id) {
    const std::scoped_lock guard(mutex_);
    if (auto unnamed = contents_.repositories.extract(""); unnamed) {
        unnamed.key() = id;
        // Existing records of that repository take precedence.
        contents_.repositories.insert(std::move(unnamed));
    }
    present_ = &contents_.repositories[id];
}

void RetentionRecord::noteClock() {
    const std::scoped_lock guard(mutex_);
    readClock();
}

RetentionLimits RetentionRecord::limits(std::chrono::days keep) {
    const std::scoped_lock guard(mutex_);
    RetentionLimits limits;
    limits.now = readClock();
    limits.keep = keep + longerForCorrections;
    limits.clockSteadySince = contents_.steadySince;
    limits.firstListed = present_->firstListed;
    for (const Entry& entry : present_->entries)
        if (entry.decision != Decision::Forget)
            limits.held.insert(entry.disappearance.snapshots.begin(), entry.disappearance.snapshots.end());
    return limits;
}

bool RetentionRecord::isForgettingDue() {
    const std::scoped_lock guard(mutex_);
    return isDayOver(readClock());
}

bool RetentionRecord::isPruningDue() {
    const std::scoped_lock guard(mutex_);
    return isDayOver(readClock()) && present_->isToPrune;
}

void RetentionRecord::noteForgotten() {
    const std::scoped_lock guard(mutex_);
    present_->forgotten = readClock();
    present_->isToPrune = true;
    save();
}

void RetentionRecord::notePruned() {
    const std::scoped_lock guard(mutex_);
    present_->isToPrune = false;
    save();
}

void RetentionRecord::noteBegun(std::uint64_t sequence) {
    noteMade(sequence, true);
}

void RetentionRecord::noteMade(std::uint64_t sequence, bool isIncomplete) {
    const std::scoped_lock guard(mutex_);
    if (isIncomplete)
        present_->incomplete.insert(sequence);
    else
        present_->incomplete.erase(sequence);
    save();
}

bool RetentionRecord::isIncomplete(std::uint64_t sequence) const {
    const std::scoped_lock guard(mutex_);
    return present_->incomplete.contains(sequence);
}

void RetentionRecord::add(const Disappearance& disappearance) {
    const std::scoped_lock guard(mutex_);
    const auto isSame = [&](const Entry& each) { return each.disappearance.id == disappearance.id; };
    const auto known = std::ranges::find_if(present_->entries, isSame);
    if (known == present_->entries.end())
        present_->entries.push_back({disappearance});
    else if (known->decision == Decision::None)
        known->disappearance = disappearance;
    save();
}

void RetentionRecord::update(const BackupIndex& index) {
    const std::scoped_lock guard(mutex_);
    noteNewSnapshots(index);
    if (const Snapshot* const newest = index.newestSnapshot())
        std::erase_if(present_->incomplete, [&](std::uint64_t sequence) {
            return sequence < newest->sequence &&
                   std::ranges::none_of(index.snapshots(), [sequence](const auto& snapshot) {
                       return snapshot.second.sequence == sequence;
                   });
        });
    std::erase_if(present_->entries, [&](const Entry& entry) {
        const Disappearance& each = entry.disappearance;
        const bool isOneThere = std::ranges::any_of(index.snapshots(), [&](const auto& snapshot) {
            return each.snapshots.contains(snapshot.second.id);
        });
        return !isOneThere || (entry.decision == Decision::None &&
                               !isDisappearance(filesHeldLastBy(index, each.snapshots), each.of));
    });
    save();
}

void RetentionRecord::noteNewSnapshots(const BackupIndex& index) {
    const std::int64_t now = readClock();
    std::map<std::uint64_t, std::int64_t> firstListed;
    for (const auto& [number, snapshot] : index.snapshots()) {
        const auto known = present_->firstListed.find(snapshot.sequence);
        if (snapshot.sequence != 0)
            firstListed[snapshot.sequence] = known == present_->firstListed.end() ? now : known->second;
    }
    present_->firstListed = std::move(firstListed);
}

std::vector<RetentionRecord::Entry> RetentionRecord::entries() const {
    const std::scoped_lock guard(mutex_);
    return present_->entries;
}

std::string RetentionRecord::decide(const std::string& id, Decision decision) {
    const std::scoped_lock guard(mutex_);
    const auto isMeant = [&](const Entry& each) {
        return !id.empty() && each.disappearance.id.starts_with(id);
    };
    const auto entry = std::ranges::find_if(present_->entries, isMeant);
    if (entry == present_->entries.end())
        return "No files that disappeared with snapshot " + id + " are waiting for a decision.";
    const Decision before = std::exchange(entry->decision, decision);
    std::string failure = save();
    if (!failure.empty())
        entry->decision = before;
    return failure;
}

// Returns the time, after comparing it with earlier readings of the clocks.
std::int64_t RetentionRecord::readClock() {
    const ClockReading reading = clock_();
    Contents& known = contents_;
    const bool isSameBoot = !reading.bootId.empty() && reading.bootId == known.bootId;
    const std::int64_t jump =
        isSameBoot ? (reading.wall - known.wallThen) - (reading.sinceBoot - known.sinceBootThen)
                   // How long the machine was off, unless the clock was set.
                   : reading.wall - known.lastSeen - reading.sinceBoot;
    const std::int64_t believed = isSameBoot ? largestCorrection : longestBelievedOff;
    const bool isFirst = known.steadySince == 0;
    const bool hasJumped = isFirst || jump < -largestCorrection || jump > believed;
    if (hasJumped && !isFirst)
        logWarning("The clock differs by %lld s from the expected time. Nothing is removed from "
                   "the backup until deleted files have been kept for their full time from now on.",
                   jump);
    if (hasJumped) {
        known.steadySince = reading.wall;
        for (auto& [id, repository] : known.repositories)
            for (auto& [sequence, time] : repository.firstListed)
                time = std::min(time, reading.wall);
    }
    if (hasJumped || !isSameBoot) {
        known.bootId = reading.bootId;
        known.wallThen = reading.wall;
        known.sinceBootThen = reading.sinceBoot;
    }
    known.lastSeen = reading.wall;
    if (hasJumped || !isSameBoot || std::abs(known.lastSeen - saved_.lastSeen) >= hour)
        save();
    return reading.wall;
}

// Returns whether a day has passed since the last forgetting and since the clock was set. A forgetting that
// is dated in the future was dated by a wrong clock and does not count.
bool RetentionRecord::isDayOver(std::int64_t now) const {
    if (present_->forgotten == 0)
        return true;
    const bool isAhead = present_->forgotten > now + largestCorrection;
    return now >= std::max(isAhead ? 0 : present_->forgotten, contents_.steadySince) + day;
}

std::string RetentionRecord::save() {
    if (contents_ == saved_)
        return {};
    Dictionary repositories;
    for (const auto& [id, repository] : contents_.repositories)
        repositories.set(id, valueOfRepository(repository));
    std::string failure = replaceCheckedFile(path_, recordKey,
                                             Dictionary{{"bootId", contents_.bootId},
                                                        {"wallThen", contents_.wallThen},
                                                        {"sinceBootThen", contents_.sinceBootThen},
                                                        {"lastSeen", contents_.lastSeen},
                                                        {"steadySince", contents_.steadySince},
                                                        {"repositories", std::move(repositories)}},
                                             largestFile);
    if (failure.empty())
        saved_ = contents_;
    else
        logError("The retention record cannot be saved: %@", failure);
    return failure;
}

RetentionRecord::Contents RetentionRecord::read(const std::string& path) {
    const CheckedReading file = readCheckedFile(path, recordKey, largestFile);
    if (file.state == CheckedReading::State::Whole)
        return contentsFrom(file.value);
    if (file.state == CheckedReading::State::Missing)
        return {};
    static_cast<void>(setAside(path, file.reason));
    logNotice("Nothing is removed from the backup until deleted files have been kept for their full "
              "time from now on.");
    return {};
}

RetentionRecord::Contents RetentionRecord::contentsFrom(const Value& value) {
    Contents contents;
    contents.bootId = value["bootId"].stringValue();
    contents.wallThen = timeIn(value["wallThen"]);
    contents.sinceBootThen = timeIn(value["sinceBootThen"]);
    contents.lastSeen = timeIn(value["lastSeen"]);
    contents.steadySince = timeIn(value["steadySince"]);
    // The format of a version that knew a single repository.
    contents.repositories[""] = repositoryFrom(value);
    for (const auto& [id, repository] : value["repositories"].dictionary())
        contents.repositories[id] = repositoryFrom(repository);
    return contents;
}

Value RetentionRecord::valueOfRepository(const OfRepository& repository) {
    Array entries;
    Array incomplete;
    Array firstListed; // Numbers and times alternate.
    for (const std::uint64_t sequence : repository.incomplete)
        incomplete.push_back(sequence);
    for (const auto& [sequence, time] : repository.firstListed) {
        firstListed.push_back(sequence);
        firstListed.push_back(time);
    }
    for (const Entry& entry : repository.entries)
        entries.push_back(valueOf(entry.disappearance, entry.decision));
    return Dictionary{{"forgotten", repository.forgotten},
                      {"isToPrune", repository.isToPrune},
                      {"incomplete", std::move(incomplete)},
                      {"made", std::move(firstListed)},
                      {"disappearances", std::move(entries)}};
}

RetentionRecord::OfRepository RetentionRecord::repositoryFrom(const Value& value) {
    OfRepository repository;
    repository.forgotten = timeIn(value["forgotten"]);
    repository.isToPrune = value["isToPrune"].boolValue();
    for (const Value& each : value["incomplete"].array())
        repository.incomplete.insert(each.uint64Value());
    const Array& listed = value["made"].array();
    for (std::size_t at = 0; at + 1 < listed.size(); at += 2)
        repository.firstListed[listed[at].uint64Value()] = timeIn(listed[at + 1]);
    for (const Value& each : value["disappearances"].array()) {
        const auto* const name = std::ranges::find(
            decisionNames, std::string_view(each["decision"].stringValue()), &DecisionName::name);
        repository.entries.push_back(
            {disappearanceFrom(each), name == std::end(decisionNames) ? Decision::None : name->decision});
    }
    return repository;
}

} // namespace kelvane
