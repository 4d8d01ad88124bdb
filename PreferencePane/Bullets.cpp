#include "PreferencePane/Bullets.h"

#include "Common/FileNode/FileNodeFlags.h"

#include <QString>

namespace kelvane {
namespace {

// Sets the same image for selected and disabled rows, in which the toolkit would tint it.
QIcon bullet(const Bundle& bundle, std::string_view name) {
    QIcon icon;
    if (const auto path = bundle.resourcePath(name, "png"))
        for (const QIcon::Mode mode : {QIcon::Normal, QIcon::Selected, QIcon::Disabled})
            icon.addFile(QString::fromStdString(*path), {}, mode);
    return icon;
}

} // namespace

void Bullets::load(const Bundle& bundle) {
    blue_ = bullet(bundle, "blue");
    gray_ = bullet(bundle, "gray");
    greenPartial_ = bullet(bundle, "green-partial");
    green_ = bullet(bundle, "green");
    red_ = bullet(bundle, "red");
    yellow_ = bullet(bundle, "yellow");
}

const QIcon& Bullets::imageForColor(std::int32_t color) const {
    switch (color) {
    case Backup_Color_Green: return green_;
    case Backup_Color_Yellow: return yellow_;
    case Backup_Color_Gray: return greenPartial_;
    case Backup_Color_Blue: return blue_;
    default: return red_;
    }
}

} // namespace kelvane
