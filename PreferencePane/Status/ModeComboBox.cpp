#include "PreferencePane/Status/ModeComboBox.h"

#include <QAbstractItemView>
#include <QKeyEvent>
#include <QStandardItemModel>
#include <QWheelEvent>
#include <utility>

namespace kelvane {

ModeComboBox::ModeComboBox(QWidget* parent) : QComboBox(parent) {
    view()->installEventFilter(this);
}

void ModeComboBox::showMode(std::int32_t index, const ModeItems& enabledItems) {
    if (view()->isVisible()) {
        postponed_ = {index, enabledItems};
        return;
    }
    postponed_.reset();
    setCurrentIndex(isDaemonMode(index) ? index : -1);
    for (int item = 0; item < count(); ++item)
        setModePopupItem(item, enabledItems.at(static_cast<std::size_t>(item)));
}

void ModeComboBox::setModePopupItem(int index, bool enabled) {
    const auto* const items = qobject_cast<QStandardItemModel*>(model());
    if (QStandardItem* const item = items ? items->item(index) : nullptr)
        item->setEnabled(enabled);
}

void ModeComboBox::keyPressEvent(QKeyEvent* event) {
    switch (event->key()) {
    case Qt::Key_Up:
    case Qt::Key_Down:
    case Qt::Key_Space:
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_F4: return showPopup();
    // NOLINTNEXTLINE(bugprone-parent-virtual-call): skips the combo box's handling
    default: QWidget::keyPressEvent(event);
    }
}

void ModeComboBox::wheelEvent(QWheelEvent* event) {
    event->ignore();
}

// Queued, because the choice that closes the list is reported after this, and must be reported first.
bool ModeComboBox::eventFilter(QObject* watched, QEvent* event) {
    if (watched == view() && event->type() == QEvent::Hide)
        QMetaObject::invokeMethod(this, &ModeComboBox::showPostponed, Qt::QueuedConnection);
    return QComboBox::eventFilter(watched, event);
}

void ModeComboBox::showPostponed() {
    if (const auto shown = std::exchange(postponed_, std::nullopt))
        showMode(shown->index, shown->enabledItems);
}

} // namespace kelvane
