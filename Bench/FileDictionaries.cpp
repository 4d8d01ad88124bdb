#include "Bench/FileDictionaries.h"

#include <array>
#include <random>

namespace kelvane::bench {
namespace {

constexpr unsigned filesInFolder = 100;

std::string fileName(unsigned number) {
    static constexpr std::array<const char*, 8> kinds = {
        "Invoice ",   "IMG_",  "Report final ", "notes-",
        "Letter to ", "song ", "Backup of ",    "R\xC3\xA9sum\xC3\xA9 "};
    static constexpr std::array<const char*, 4> extensions = {".pdf", ".jpeg", ".txt", ".docx"};
    return kinds[number % kinds.size()] + std::to_string(number) + extensions[number / 3 % extensions.size()];
}

std::string folderPath(unsigned number) {
    static constexpr std::array<const char*, 4> areas = {"Documents/Work", "Pictures/Holidays",
                                                         "Documents/Private", "Music"};
    const unsigned folder = number / filesInFolder;
    return std::string("/home/martha/") + areas[folder % areas.size()] + "/Project " +
           std::to_string(folder) + "/";
}

} // namespace

Dictionary fileDictionary(unsigned number) {
    std::minstd_rand random(number + 1);
    const std::string name = fileName(number);
    Dictionary file;
    file.append("fileName", name);
    file.append("displayName", name);
    file.append("isDirectory", number % filesInFolder == 0);
    file.append("backupDate", Date{700000000.0 + static_cast<double>(random() % 50000000)});
    file.append("version", number % 5 + 1);
    file.append("path", folderPath(number) + name);
    file.append("state", number % 10 == 0 ? "Pending" : "Backed up");
    file.append("size", std::uint64_t{random()} >> random() % 31U);
    file.append("backupFlags", 0x30U + number % 4);
    file.append("simpleFlags", 3U);
    file.append("backupColor", number % 10 == 0 ? 3U : 2U);
    file.append("totalCount", 1U);
    file.append("uid", 1000U);
    file.append("gid", 1000U);
    return file;
}

Value fileDictionaries(unsigned count) {
    Array files;
    files.reserve(count);
    for (unsigned number = 0; number < count; ++number)
        files.emplace_back(fileDictionary(number));
    return files;
}

} // namespace kelvane::bench
