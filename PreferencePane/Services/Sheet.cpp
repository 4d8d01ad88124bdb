#include "PreferencePane/Services/Sheet.h"

#include <QDialogButtonBox>
#include <QPushButton>
#include <QScreen>
#include <algorithm>

namespace kelvane {
namespace {

int returnCodeOf(const QAbstractButton* clicked, const std::vector<QPushButton*>& buttons) {
    int returnCode = firstButtonReturn;
    for (const QPushButton* const button : buttons) {
        if (button == clicked || button == buttons.back())
            break;
        ++returnCode;
    }
    return returnCode;
}

// A click on any button closes its message box, so the help button is disconnected from the box.
void addHelp(QMessageBox& box, QObject* context, const std::function<void()>& showHelp) {
    QPushButton* const help = box.addButton(QMessageBox::Help);
    help->disconnect();
    help->setIcon({}); // the other buttons have no icon
    QObject::connect(help, &QAbstractButton::clicked, context, showHelp);
}

// A message box uses only part of a large screen and clips wider contents. Buttons that would be clipped
// in a row are stacked.
void arrange(QMessageBox& box, const QWidget& parent) {
    // In logical pixels.
    constexpr int widest = 720;
    constexpr int smallScreen = 1024;
    constexpr int keptOfLargeScreen = 480;
    constexpr int margins = 40;
    const int screen = parent.screen()->availableGeometry().width();
    const int room = std::min(widest, screen - (screen > smallScreen ? keptOfLargeScreen : 0) - margins);
    auto* const row = box.findChild<QDialogButtonBox*>();
    if (row->sizeHint().width() <= room)
        return;
    row->setOrientation(Qt::Vertical);
    row->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

} // namespace

QString sheetTitle(const QWidget* parent) {
    while (parent->windowTitle().isEmpty() && parent->parentWidget() != nullptr)
        parent = parent->parentWidget();
    return parent->windowTitle();
}

QMessageBox* openSheet(QWidget* parent, const Sheet& sheet, QObject* context,
                       const std::function<void(int returnCode)>& ended) {
    auto* const box = new QMessageBox(QMessageBox::Warning, sheetTitle(parent), sheet.message,
                                      QMessageBox::NoButton, parent);
    box->setAccessibleName(sheet.message); // otherwise a screen reader would read the title
    box->setTextFormat(Qt::PlainText);
    box->setInformativeText(sheet.informative);
    std::vector<QPushButton*> buttons;
    for (const QString& text : sheet.buttons) {
        const auto role = buttons.empty() ? QMessageBox::AcceptRole : QMessageBox::RejectRole;
        buttons.push_back(box->addButton(text, role));
    }
    buttons.front()->setEnabled(sheet.canConfirm);
    if (sheet.showHelp)
        addHelp(*box, context, sheet.showHelp);
    box->setDefaultButton(buttons.front());
    box->setEscapeButton(buttons.back());
    arrange(*box, *parent);
    box->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(box, &QDialog::finished, context, [box, buttons, context, ended] {
        const int returnCode = returnCodeOf(box->clickedButton(), buttons);
        QMetaObject::invokeMethod(
            context, [ended, returnCode] { ended(returnCode); }, Qt::QueuedConnection);
    });
    box->open();
    return box;
}

} // namespace kelvane
