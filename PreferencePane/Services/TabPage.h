#pragma once

#include "PreferencePane/Services/FormTexts.h"

#include <QWidget>
#include <string>

namespace kelvane {

// The page of a tab that shows one of several views: an empty widget whose layout holds the current view. The
// other views are hidden children of the page.

// Creates a view from its form with the bundle's texts; without a page, the caller places it.
template <class Form>
[[nodiscard]] QWidget* makeView(Form& form, QWidget* page, const Bundle& bundle) {
    auto* const view = new QWidget(page);
    if (page != nullptr)
        view->hide();
    form.setupUi(view);
    localizeForm(*view, bundle);
    return view;
}

// Null when no view is shown.
[[nodiscard]] QWidget* shownView(const QWidget& page);
void showView(QWidget& page, QWidget& view);

// For the log.
[[nodiscard]] std::string nameOfView(const QWidget* view);

} // namespace kelvane
