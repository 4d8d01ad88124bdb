#pragma once

#include <QComboBox>
#include <QWheelEvent>

namespace kelvane {

// A combo box that ignores the mouse wheel, so that scrolling past it does not change it.
class PopUpButton : public QComboBox {
public:
    using QComboBox::QComboBox;

protected:
    void wheelEvent(QWheelEvent* event) override { event->ignore(); }
};

} // namespace kelvane
