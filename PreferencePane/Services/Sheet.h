#pragma once

#include <QMessageBox>
#include <functional>
#include <vector>

namespace kelvane {

struct Sheet {
    QString message;
    QString informative;                 // may be empty
    std::vector<QString> buttons;        // the first one confirms; the last one is what Escape means
    bool canConfirm = true;              // whether the first one is enabled
    std::function<void()> showHelp = {}; // for one more button, which leaves the sheet open
};

inline constexpr int firstButtonReturn = 1000; // the next ones count up

// The window title of the widget, or of its nearest ancestor that has one: in a pane, the pane's name.
[[nodiscard]] QString sheetTitle(const QWidget* parent);

// Shows it as a sheet of the window that holds the parent, which takes no input until it has been answered;
// returns at once. `ended` is called from the event loop once the sheet has closed, with the number of its
// button, unless `context` is deleted first. The sheet deletes itself.
QMessageBox* openSheet(QWidget* parent, const Sheet& sheet, QObject* context,
                       const std::function<void(int returnCode)>& ended);

} // namespace kelvane
