#pragma once

#include <QComboBox>
#include <QWheelEvent>

namespace kelvane {

// A choice of one that the wheel, turned to scroll past it, leaves alone.
class PopUpButton : public QComboBox {
public:
    using QComboBox::QComboBox;

protected:
    void wheelEvent(QWheelEvent* event) override { event->ignore(); }
};

} // namespace kelvane
