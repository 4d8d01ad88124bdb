#pragma once

#include "Host/MessagePage.h"

#include <QIcon>
#include <QLabel>
#include <QListWidget>
#include <QMainWindow>
#include <QStackedWidget>

namespace kelvane::host {

// The window: the list of panes at the side, and the current pane beside it. Makes no decisions. Derives
// from QMainWindow because screen readers recognise that class as a window.
class SettingsWindow : public QMainWindow {
    Q_OBJECT

public:
    SettingsWindow();

    void addPane(const QIcon& icon, const QString& title);
    // Has the same effect as a choice by the user.
    void choosePane(int index) { list_->setCurrentRow(index); }
    [[nodiscard]] int chosenPane() const { return list_->currentRow(); }
    // A notice above the pane, for example that this is a trial run; hidden when empty.
    void setNotice(const QString& text);

    void showNothing() { pages_->setCurrentWidget(nothing_); }
    void showMessage(const QString& title, const QString& problem, const QString& path);
    // Adopts the view until it is deleted or removed.
    void showPane(QWidget* view);
    // The area that shows the panes and messages, and so is painted when one of them is shown.
    [[nodiscard]] QWidget& pageArea() { return *area_; }

    Q_SIGNAL void paneChosen(int index);
    // Emitted when the window is closed, by the user or by the program.
    Q_SIGNAL void closing();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    QListWidget* const list_;
    QLabel* const notice_;
    QWidget* const area_;
    QStackedWidget* const pages_;
    QWidget* const nothing_;
    MessagePage* const message_;
};

} // namespace kelvane::host
