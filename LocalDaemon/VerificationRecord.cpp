#include "LocalDaemon/VerificationRecord.h"

#include "Foundation/BinaryPropertyList.h"
#include "Foundation/Unicode.h"
#include "LocalDaemon/CleanPath.h"
#include "LocalDaemon/DamagedFile.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <cerrno>

namespace kelvane {
namespace {

using std::chrono::system_clock;

constexpr std::size_t largestFile = std::size_t{64} << 20U;
constexpr mode_t privateMode = 0600;

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
    VerificationRecord record;
    const FileReading file = readFile(path, largestFile);
    if (file.error == ENOENT || file.error == ENOTDIR)
        return record;
    const PropertyListReading list = readBinaryPropertyList(file.bytes);
    if (!file.succeeded() || !list.value.isDictionary()) {
        static_cast<void>(setAside(path, file.succeeded() ? list.error : file.reason));
        return record;
    }
    const Value& value = list.value;
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
                     {"lastOutcome", textFromPath(lastOutcome)}}; // restic's words may hold names of files
    if (lastVerified)
        value.set("lastVerified", secondsOf(*lastVerified));
    const PropertyListWriting list = writeBinaryPropertyList(Value(std::move(value)));
    FileOutcome saved;
    if (list.succeeded() && ensureFolder(std::string(folderOf(path))))
        saved = replaceFileAtomically(path, list.bytes, privateMode);
    if (!list.succeeded() || !saved.succeeded())
        KelvaneSystemLog("Cannot save how far the verification is: %@",
                         list.succeeded() ? saved.reason : list.error);
}

} // namespace kelvane
