#include "PreferencePane/Services/FormTexts.h"

#include <QVariant>
#include <QWidget>

namespace kelvane {
namespace {

constexpr const char* textProperties[] = {"text", "title", "windowTitle", "accessibleName",
                                          "accessibleDescription"};

void localize(QWidget& widget, const Bundle& bundle) {
    for (const char* const property : textProperties) {
        const std::string key = widget.property(property).toString().toStdString();
        if (!key.empty())
            widget.setProperty(property, QString::fromStdString(bundle.localizedString(key, key)));
    }
}

} // namespace

void localizeForm(QWidget& form, const Bundle& bundle) {
    localize(form, bundle);
    for (QWidget* const child : form.findChildren<QWidget*>())
        localize(*child, bundle);
}

} // namespace kelvane
