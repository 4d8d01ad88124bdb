#include "Host/WindowMemory.h"

#include "Platform/SpecialFolders.h"

#include <QSettings>
#include <QWidget>
#include <iostream>

namespace kelvane::host {
namespace {

constexpr const char* geometryKey = "window/geometry";

QString settingsFile() {
    return QString::fromStdString(configurationFolder() + "/kelvane-settings.conf");
}

} // namespace

void restoreWindow(QWidget& window) {
    const QSettings settings(settingsFile(), QSettings::IniFormat);
    window.restoreGeometry(settings.value(geometryKey).toByteArray());
}

void rememberWindow(const QWidget& window) {
    QSettings settings(settingsFile(), QSettings::IniFormat);
    settings.setValue(geometryKey, window.saveGeometry());
    settings.sync();
    if (settings.status() != QSettings::NoError)
        std::cerr << "kelvane-settings: cannot write " << settingsFile().toStdString() << ": "
                  << (settings.status() == QSettings::FormatError ? "not an INI file" : "access error")
                  << '\n';
}

} // namespace kelvane::host
