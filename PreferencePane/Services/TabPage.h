#pragma once

#include "PreferencePane/Services/FormTexts.h"

#include <QWidget>
#include <string>

namespace kelvane {

// The page of a tab whose controller shows one of several views: a widget that is empty but for its layout,
// which holds the one that is shown. The others are hidden children of the page.

// A view from its form, with the bundle's texts; without a page it is for whoever takes it to show.
template <class Form>
[[nodiscard]] QWidget* makeView(Form& form, QWidget* page, const Bundle& bundle) {
    auto* const view = new QWidget(page);
    if (page != nullptr)
        view->hide();
    form.setupUi(view);
    localizeForm(*view, bundle);
    return view;
}

// Null when there is none.
[[nodiscard]] QWidget* shownView(const QWidget& page);
void showView(QWidget& page, QWidget& view);

// For the log.
[[nodiscard]] std::string nameOfView(const QWidget* view);

} // namespace kelvane
