#include "PreferencePane/Services/FormTexts.h"

#include <QVariant>
#include <QWidget>
#include <algorithm>

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

bool spoilsALine(QChar character) {
    switch (character.category()) {
    case QChar::Other_Control:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph: return true;
    default: break;
    }
    switch (character.direction()) {
    case QChar::DirLRE:
    case QChar::DirLRO:
    case QChar::DirRLE:
    case QChar::DirRLO:
    case QChar::DirPDF:
    case QChar::DirLRI:
    case QChar::DirRLI:
    case QChar::DirFSI:
    case QChar::DirPDI: return true;
    default: return false;
    }
}

} // namespace

QString oneLine(const std::string& text) {
    QString line = QString::fromStdString(text);
    std::replace_if(line.begin(), line.end(), spoilsALine, QChar(QChar::ReplacementCharacter));
    return line;
}

void localizeForm(QWidget& form, const Bundle& bundle) {
    localize(form, bundle);
    for (QWidget* const child : form.findChildren<QWidget*>())
        localize(*child, bundle);
}

} // namespace kelvane
