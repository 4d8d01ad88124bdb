#include "PreferencePane/Backup/VisibleFiles.h"

#include "Foundation/Format.h"
#include "Foundation/PathComponents.h"
#include "Foundation/Unicode.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <QStringConverter>
#include <QStringList>
#include <algorithm>
#include <strings.h>

namespace kelvane {
namespace {

using Kind = FileAttributes::Kind;

constexpr std::size_t longestHiddenList = std::size_t{1} << 20U; // in bytes
// More would take seconds and hundreds of megabytes.
constexpr std::size_t mostItems = 500'000;

constexpr const char* libraryFolders[] = {".config", ".local"}; // in the home folder

// Decodes by the byte order mark, otherwise as UTF-8, otherwise as Latin-1, which accepts all bytes.
QString decoded(const Data& bytes) {
    const QByteArrayView contents(bytes.data(), static_cast<qsizetype>(bytes.size()));
    if (const auto named = QStringConverter::encodingForData(contents))
        return QStringDecoder(*named)(contents);
    const bool isText = isUtf8({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    return isText ? QString::fromUtf8(contents) : QString::fromLatin1(contents);
}

bool comesBefore(const std::string& one, const std::string& other) {
    const int order = ::strcasecmp(one.c_str(), other.c_str());
    return order != 0 ? order < 0 : one < other;
}

} // namespace

VisibleFiles::VisibleFiles(const FileSystem& fileSystem, std::string hiddenListPath)
    : fileSystem_(fileSystem), hiddenListPath_(std::move(hiddenListPath)) {}

std::vector<VisibleFile> VisibleFiles::visibleFilesAtPath(const std::string& path,
                                                          const IsPathExcluded& isExcluded) {
    // Both names of the boot volume resolve to "/".
    if (!hiddenList_ && fileSystem_.volumes()->realPath(path) == "/")
        readHiddenList();
    const std::string prefix = path.ends_with('/') ? path : path + '/';
    std::vector<VisibleFile> visible;
    for (const std::string& name : namesAt(path)) {
        if (hiddenList_ && hiddenList_->contains(name))
            continue;
        std::string item = prefix + name;
        const auto attributes = fileSystem_.attributes(item);
        const bool isThere =
            attributes && (attributes->kind != Kind::SymbolicLink || fileSystem_.exists(item));
        if (isThere && !isInvisible(item, name) && !isExcluded(item + '/'))
            visible.push_back({std::move(item), attributes->kind == Kind::Directory});
    }
    return visible;
}

void VisibleFiles::readHiddenList() {
    const FileReading file = readFile(hiddenListPath_, longestHiddenList, SymbolicLinks::Follow);
    if (!file.succeeded())
        return;
    hiddenList_.emplace();
    for (const QString& name : decoded(file.bytes).split('\n', Qt::SkipEmptyParts))
        hiddenList_->insert(name.toStdString());
}

// Sorted, because the order on the disk means nothing to the user.
std::vector<std::string> VisibleFiles::namesAt(const std::string& path) {
    FolderListing listing = fileSystem_.list(path, mostItems);
    if (!listing.isComplete && incompleteFolders_.insert(path).second)
        KelvaneCLog("Not all of %@ is shown: %@", path,
                    listing.error != 0 ? errorText(listing.error)
                                       : "it has more than " + std::to_string(mostItems) + " items");
    std::ranges::sort(listing.names, comesBefore);
    return std::move(listing.names);
}

bool VisibleFiles::isInvisible(const std::string& path, std::string_view name) {
    return name.starts_with('.') &&
           std::ranges::find(userLibraryFolders(), fileSystem_.volumes()->volumePath(path)) ==
               userLibraryFolders().end();
}

const std::vector<std::string>& VisibleFiles::userLibraryFolders() {
    if (!userLibraryFolders_) {
        userLibraryFolders_.emplace();
        for (const char* const name : libraryFolders)
            userLibraryFolders_->push_back(
                fileSystem_.volumes()->volumePath(appendPathComponent(homeFolder(), name)));
    }
    return *userLibraryFolders_;
}

} // namespace kelvane
