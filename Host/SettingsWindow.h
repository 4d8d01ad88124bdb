#pragma once

#include "Host/MessagePage.h"

#include <QIcon>
#include <QLabel>
#include <QListWidget>
#include <QMainWindow>
#include <QStackedWidget>

namespace kelvane::host {

// The window: the panes at the side, the one that is shown beside them. It decides nothing. Screen readers
// take it for a window because it is of the class that they know.
class SettingsWindow : public QMainWindow {
    Q_OBJECT

public:
    SettingsWindow();

    void addPane(const QIcon& icon, const QString& title);
    // As if the user had chosen it.
    void choosePane(int index) { list_->setCurrentRow(index); }
    [[nodiscard]] int chosenPane() const { return list_->currentRow(); }
    // A calm line above the pane, such as that this is a trial; none when empty.
    void setNotice(const QString& text);

    void showNothing() { pages_->setCurrentWidget(nothing_); }
    void showMessage(const QString& title, const QString& problem, const QString& path);
    // Takes the view in, where it stays until it is deleted or taken out.
    void showPane(QWidget* view);
    // What is painted with every pane and message.
    [[nodiscard]] QWidget& pageArea() { return *area_; }

    Q_SIGNAL void paneChosen(int index);
    // The window goes, whoever has closed it.
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
