#pragma once

#include <QApplication>
#include <QPalette>
#include <QWidget>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

namespace kelvane::tests {

// With a folder in KELVANE_PICTURES, tests take pictures into it, for people to look at; QT_SCALE_FACTOR=2
// makes those of a fine screen.
inline bool arePicturesWanted() {
    return std::getenv("KELVANE_PICTURES") != nullptr;
}

inline QPalette darkPalette() {
    const QColor ground("#31363b");
    QPalette palette(QColor("#eff0f1"), ground, ground.lighter(), ground.darker(), QColor("#62686e"),
                     QColor("#eff0f1"), QColor("#232629"));
    palette.setColor(QPalette::Highlight, QColor("#308cc6"));
    palette.setColor(QPalette::PlaceholderText, QColor("#a0a6ab"));
    for (const QPalette::ColorRole role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, QColor("#7f868c"));
    return palette;
}

inline void takePicture(QWidget& shown, const std::string& name) {
    for (const char* const theme : {"light", "dark"}) {
        QApplication::setPalette(theme == std::string("dark") ? darkPalette() : QPalette());
        QCoreApplication::processEvents();
        const QImage picture = shown.grab().toImage();
        const QString file = QString("%1/%2-%3-%4.png");
        EXPECT_TRUE(picture.save(
            file.arg(std::getenv("KELVANE_PICTURES"), name.c_str(), theme).arg(picture.devicePixelRatio())));
    }
}

} // namespace kelvane::tests
