#include "Host/Appearance/Appearance.h"

#include "Host/Appearance/RoomyStyle.h"
#include "Host/Appearance/SystemAppearance.h"

#include <QApplication>
#include <QPalette>
#include <array>

namespace kelvane::host {
namespace {

struct Shade {
    QPalette::ColorRole role;
    QRgb light;
    QRgb dark;
};

constexpr std::array shades{
    Shade{QPalette::Window, 0xfff3f4f6, 0xff26282c},
    Shade{QPalette::WindowText, 0xff1d2126, 0xffe6e8eb},
    Shade{QPalette::Base, 0xffffffff, 0xff1d1f22},
    Shade{QPalette::AlternateBase, 0xfff3f4f6, 0xff25272b},
    Shade{QPalette::Text, 0xff1d2126, 0xffe6e8eb},
    Shade{QPalette::Button, 0xfff6f7f8, 0xff2b2e33},
    Shade{QPalette::ButtonText, 0xff1d2126, 0xffe6e8eb},
    Shade{QPalette::BrightText, 0xffffffff, 0xffffffff},
    Shade{QPalette::ToolTipBase, 0xffffffff, 0xff35383d},
    Shade{QPalette::ToolTipText, 0xff1d2126, 0xffe6e8eb},
    Shade{QPalette::PlaceholderText, 0xff6b7480, 0xff9aa1ab},
    Shade{QPalette::Link, 0xff1f5fa8, 0xff7fb4f0},
    Shade{QPalette::LinkVisited, 0xff6b4a9e, 0xffb79cea},
    Shade{QPalette::Highlight, 0xff2f6cb0, 0xff3a76bd},
    Shade{QPalette::HighlightedText, 0xffffffff, 0xffffffff},
    Shade{QPalette::Light, 0xffffffff, 0xff3b3f45},
    Shade{QPalette::Midlight, 0xffe9ebee, 0xff3b3e44},
    Shade{QPalette::Mid, 0xffb9bfc7, 0xff17191b},
    Shade{QPalette::Dark, 0xff9aa2ac, 0xff141517},
    Shade{QPalette::Shadow, 0xff6f7780, 0xff0b0c0d},
};

constexpr std::array disabledTexts{QPalette::WindowText, QPalette::Text, QPalette::ButtonText};
constexpr QRgb disabledLight = 0xff8a929c;
constexpr QRgb disabledDark = 0xff7b818a;

QPalette paletteFor(bool dark) {
    QPalette palette;
    for (const Shade& shade : shades)
        palette.setColor(shade.role, QColor(dark ? shade.dark : shade.light));
    for (const QPalette::ColorRole role : disabledTexts)
        palette.setColor(QPalette::Disabled, role, QColor(dark ? disabledDark : disabledLight));
    palette.setColor(QPalette::Disabled, QPalette::Highlight,
                     palette.color(dark ? QPalette::Midlight : QPalette::Mid));
    return palette;
}

bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() < palette.color(QPalette::WindowText).lightness();
}

} // namespace

void applyAppearance(Appearance appearance) {
    QApplication::setStyle(new RoomyStyle);
    if (appearance != Appearance::System)
        return QApplication::setPalette(paletteFor(appearance == Appearance::Dark));
    const QPalette own = QApplication::palette();
    if (isDark(own))
        return;
    auto* const system = new SystemAppearance(
        [own](bool wantsDark) { QApplication::setPalette(wantsDark ? paletteFor(true) : own); });
    system->setParent(qApp);
}

} // namespace kelvane::host
