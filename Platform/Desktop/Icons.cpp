#include "Platform/Desktop/Icons.h"

#include <QMimeDatabase>
#include <QStringList>

namespace kelvane {
namespace {

class DesktopIcon : public Icon {
public:
    explicit DesktopIcon(QIcon picture) : picture_(std::move(picture)) {}
    [[nodiscard]] const QIcon& picture() const { return picture_; }

private:
    const QIcon picture_;
};

QIcon find(const Bundle* bundle, std::string_view name) {
    if (const auto file = bundle != nullptr ? bundle->resourcePath(name, "svg") : std::nullopt)
        return QIcon(QString::fromStdString(*file));
    return QIcon::fromTheme(QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size())));
}

} // namespace

// The cast is safe: every IconHandle is created in this file.
QIcon qIcon(const IconHandle& icon) {
    return icon ? static_cast<const DesktopIcon&>(*icon).picture() : QIcon();
}

IconHandle iconHandle(const QIcon& icon) {
    return icon.isNull() ? nullptr : std::make_shared<DesktopIcon>(icon);
}

Icons::Icons(std::shared_ptr<const Bundle> bundle) : bundle_(std::move(bundle)) {}

IconHandle Icons::named(std::string_view name) const {
    if (const auto known = found_.find(name); known != found_.end())
        return known->second;
    IconHandle icon = iconHandle(find(bundle_.get(), name));
    found_.emplace(name, icon);
    return icon;
}

IconHandle Icons::fileNamed(std::string_view fileName) const {
    const QMimeType type = QMimeDatabase().mimeTypeForFile(
        QString::fromUtf8(fileName.data(), static_cast<qsizetype>(fileName.size())),
        QMimeDatabase::MatchExtension);
    for (const QString& name : {type.iconName(), type.genericIconName()})
        if (IconHandle icon = named(name.toStdString()))
            return icon;
    return file();
}

} // namespace kelvane
