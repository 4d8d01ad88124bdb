#pragma once

#include <QProxyStyle>

namespace kelvane::host {

// Fusion, with some room around the texts of buttons, buttons without icons in every dialog, a picture of our
// own for a warning, and a button that stays down told from the others by its colour. Main thread only.
class RoomyStyle : public QProxyStyle {
    Q_OBJECT
public:
    RoomyStyle() : QProxyStyle("Fusion") {}

    [[nodiscard]] QSize sizeFromContents(ContentsType type, const QStyleOption* option, const QSize& size,
                                         const QWidget* widget) const override;
    [[nodiscard]] int styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                                QStyleHintReturn* more) const override;
    [[nodiscard]] QIcon standardIcon(StandardPixmap icon, const QStyleOption* option,
                                     const QWidget* widget) const override;
    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override;
};

} // namespace kelvane::host
