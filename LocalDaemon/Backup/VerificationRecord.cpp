#include "LocalDaemon/Backup/VerificationRecord.h"

#include "Foundation/Unicode.h"
#include "Support/Logging.h"
#include "Support/Preferences/CheckedFile.h"
#include "Support/Preferences/DamagedFile.h"

namespace kelvane {
namespace {

using std::chrono::system_clock;

constexpr std::size_t largestFile = std::size_t{64} << 20U;
constexpr std::string_view recordKey = "record";

Value secondsOf(system_clock::time_point time) {
    return static_cast<long long>(std::chrono::floor<std::chrono::seconds>(time).time_since_epoch().count());
}

system_clock::time_point timeFrom(const Value& seconds) {
    return system_clock::time_point(std::chrono::seconds(seconds.int64Value()));
}

std::set<std::string> textsIn(const Value& array) {
    std::set<std::string> texts;
    for (const Value& each : array.array())
        texts.insert(each.stringValue());
    return texts;
}

Array arrayOf(const std::set<std::string>& texts) {
    return {texts.begin(), texts.end()};
}

} // namespace

VerificationRecord VerificationRecord::read(const std::string& path) {
    const CheckedReading file = readCheckedFile(path, recordKey, largestFile);
    if (file.state == CheckedReading::State::Whole)
        return fromValue(file.value);
    VerificationRecord record;
    if (file.state == CheckedReading::State::Missing)
        return record;
    static_cast<void>(setAside(path, file.reason));
    record.roundBegan = {};
    record.save(path);
    return record;
}

VerificationRecord VerificationRecord::fromValue(const Value& value) {
    VerificationRecord record;
    record.repository = value["repository"].stringValue();
    record.damage = Damage::fromValue(value["damage"]);
    record.damagedPacks = textsIn(value["damagedPacks"]);
    record.othersPacks = textsIn(value["othersPacks"]);
    record.missingPacks = textsIn(value["missingPacks"]);
    record.areAllOnDisk = value["areAllOnDisk"].boolValue();
    record.isIndexStale = value["isIndexStale"].boolValue();
    record.mustStoreAgain = value["mustStoreAgain"].boolValue();
    record.parts = value["parts"].uint32Value();
    record.partsRead = value["partsRead"].uint32Value();
    record.roundBegan = timeFrom(value["roundBegan"]);
    if (!value["lastVerified"].isAbsent())
        record.lastVerified = timeFrom(value["lastVerified"]);
    record.lastOutcome = value["lastOutcome"].stringValue();
    return record;
}

void VerificationRecord::save(const std::string& path) const {
    Dictionary value{{"repository", repository},
                     {"damage", damage.value()},
                     {"damagedPacks", arrayOf(damagedPacks)},
                     {"othersPacks", arrayOf(othersPacks)},
                     {"missingPacks", arrayOf(missingPacks)},
                     {"areAllOnDisk", areAllOnDisk},
                     {"isIndexStale", isIndexStale},
                     {"mustStoreAgain", mustStoreAgain},
                     {"parts", parts},
                     {"partsRead", partsRead},
                     {"roundBegan", secondsOf(roundBegan)},
                     {"lastOutcome", textFromPath(lastOutcome)}}; // restic's message may contain file names.
    if (lastVerified)
        value.set("lastVerified", secondsOf(*lastVerified));
    if (const std::string failure = replaceCheckedFile(path, recordKey, value, largestFile); !failure.empty())
        logError("The progress of the verification cannot be saved: %@", failure);
}

} // namespace kelvane
