#include "PreferencePane/Services/TabPage.h"

#include <QLayout>

namespace kelvane {

QWidget* shownView(const QWidget& page) {
    const QLayoutItem* const item = page.layout()->itemAt(0);
    return item != nullptr ? item->widget() : nullptr;
}

void showView(QWidget& page, QWidget& view) {
    if (QWidget* const shown = shownView(page)) {
        page.layout()->removeWidget(shown);
        shown->hide();
    }
    page.layout()->addWidget(&view);
    view.show();
}

std::string nameOfView(const QWidget* view) {
    return view != nullptr ? view->objectName().toStdString() : "(null)";
}

} // namespace kelvane
