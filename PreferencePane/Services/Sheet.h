#pragma once

#include <QMessageBox>
#include <functional>
#include <vector>

namespace kelvane {

struct Sheet {
    QString message;
    QString informative;                 // may be empty
    std::vector<QString> buttons;        // the first one confirms; Escape stands for the last one
    bool canConfirm = true;              // whether the first button is enabled
    std::function<void()> showHelp = {}; // adds a button that leaves the sheet open
};

inline constexpr int firstButtonReturn = 1000; // later buttons count up from this

// The window title of the widget or of its nearest ancestor with one: in a pane, the pane's name.
[[nodiscard]] QString sheetTitle(const QWidget* parent);

// Shows a sheet on the window of the parent, which accepts no input until the sheet is closed; returns at
// once. `ended` is called from the event loop after that with the number of the button, unless `context` is
// destroyed first. The sheet deletes itself.
QMessageBox* openSheet(QWidget* parent, const Sheet& sheet, QObject* context,
                       const std::function<void(int returnCode)>& ended);

} // namespace kelvane
