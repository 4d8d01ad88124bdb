#include "PreferencePane/Info/IconView.h"

#include <QPainter>

namespace kelvane {

void IconView::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    icon_.paint(&painter, rect());
}

} // namespace kelvane
