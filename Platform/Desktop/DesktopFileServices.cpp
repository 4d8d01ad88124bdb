#include "Platform/Desktop/DesktopFileServices.h"

#include "Foundation/PathComponents.h"

#include <QDateTime>
#include <QLocale>
#include <QMimeDatabase>
#include <algorithm>
#include <cmath>

namespace kelvane {
namespace {

// Times beyond this, in milliseconds before or after 1970, are not shown as calendar dates.
constexpr double latestTime = 8e15;

QString fileNameOf(std::string_view extension) {
    return "file." + QString::fromUtf8(extension.data(), static_cast<qsizetype>(extension.size()));
}

} // namespace

std::string DesktopFileServices::dateAndTime(Date date) const {
    const double time = std::floor((date.secondsSinceReference + Date::referenceTime) * 1000);
    if (!(std::abs(time) < latestTime))
        return Value(date).description();
    const QDateTime moment = QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(time));
    return QLocale().toString(moment, QLocale::ShortFormat).toStdString();
}

std::string DesktopFileServices::kindOfFolder() const {
    QString kind = QMimeDatabase().mimeTypeForName("inode/directory").comment();
    if (kind.isEmpty())
        return "Folder";
    kind.front() = kind.front().toUpper();
    return kind.toStdString();
}

std::string DesktopFileServices::kindOfExtension(std::string_view extension) const {
    const QMimeType type =
        QMimeDatabase().mimeTypeForFile(fileNameOf(extension), QMimeDatabase::MatchExtension);
    return extension.empty() || type.isDefault() ? std::string() : type.comment().toStdString();
}

IconHandle DesktopFileServices::iconOfFile(const std::string& path) const {
    if (!fileSystem().isDirectory(path))
        return icons_.fileNamed(lastPathComponent(path));
    const std::shared_ptr<const Volumes> volumes = fileSystem().volumes();
    const std::optional<std::string> real = volumes->realPath(path);
    const bool isDisk =
        std::ranges::any_of(volumes->all(), [&](const Volume& volume) { return volume.mountPoint == real; });
    return isDisk ? icons_.disk() : icons_.folder();
}

IconHandle DesktopFileServices::iconOfExtension(std::string_view extension) const {
    return icons_.fileNamed(fileNameOf(extension).toStdString());
}

} // namespace kelvane
