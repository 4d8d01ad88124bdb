#include "Host/Appearance/RoomyStyle.h"

#include <QStyleOptionButton>

namespace kelvane::host {
namespace {

// In logical pixels.
constexpr QSize buttonPadding(16, 4);
constexpr QSize roomInPopUp(0, 4);

constexpr float heldTint = 0.4F; // share of the highlight colour in a checked button

QColor mixed(const QColor& ground, const QColor& tint, float share) {
    const auto mix = [share](float one, float other) { return one + (other - one) * share; };
    return QColor::fromRgbF(mix(ground.redF(), tint.redF()), mix(ground.greenF(), tint.greenF()),
                            mix(ground.blueF(), tint.blueF()));
}

} // namespace

QSize RoomyStyle::sizeFromContents(ContentsType type, const QStyleOption* option, const QSize& size,
                                   const QWidget* widget) const {
    const QSize usual = QProxyStyle::sizeFromContents(type, option, size, widget);
    switch (type) {
    case CT_PushButton: return usual + buttonPadding;
    case CT_ComboBox: return usual + roomInPopUp;
    default: return usual;
    }
}

int RoomyStyle::styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                          QStyleHintReturn* more) const {
    return hint == SH_DialogButtonBox_ButtonsHaveIcons ? 0
                                                       : QProxyStyle::styleHint(hint, option, widget, more);
}

QIcon RoomyStyle::standardIcon(StandardPixmap icon, const QStyleOption* option, const QWidget* widget) const {
    return icon == SP_MessageBoxWarning ? QIcon(":/Resources/warning.svg")
                                        : QProxyStyle::standardIcon(icon, option, widget);
}

void RoomyStyle::drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                               const QWidget* widget) const {
    const auto* const button = qstyleoption_cast<const QStyleOptionButton*>(option);
    if (element != PE_PanelButtonCommand || button == nullptr || !button->state.testFlag(State_On))
        return QProxyStyle::drawPrimitive(element, option, painter, widget);
    QStyleOptionButton held(*button);
    const QPalette& palette = button->palette;
    held.palette.setColor(QPalette::Button, mixed(palette.color(QPalette::Button),
                                                  palette.color(QPalette::Highlight), heldTint));
    QProxyStyle::drawPrimitive(element, &held, painter, widget);
}

} // namespace kelvane::host
