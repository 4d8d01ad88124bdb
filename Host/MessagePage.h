#pragma once

#include <QLabel>
#include <QWidget>

namespace kelvane::host {

// Shown for a pane without its own icon.
inline constexpr const char* missingPanePicture = ":/Resources/pane-missing.svg";

// The page shown instead of a pane that cannot be shown: what happened, where, and what to do next.
class MessagePage : public QWidget {
public:
    explicit MessagePage(QWidget* parent = nullptr);

    void show(const QString& title, const QString& problem, const QString& path);

private:
    QLabel* const title_;
    QLabel* const problem_;
    QLabel* const path_;
};

} // namespace kelvane::host
