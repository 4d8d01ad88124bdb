#pragma once

#include <QProxyStyle>

namespace kelvane::host {

// Fusion with more padding around the texts of buttons, no icons on dialog buttons, our own warning icon, and
// checked buttons marked by colour. Main thread only.
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
