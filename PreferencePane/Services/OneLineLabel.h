#pragma once

#include <QLabel>

namespace kelvane {

// A one-line label that elides the middle of its text when there is no room, because both ends of a file name
// matter; a tool tip shows the full text. `text` is always the full plain text.
class OneLineLabel : public QLabel {
    Q_OBJECT

public:
    explicit OneLineLabel(QWidget* parent = nullptr);

    [[nodiscard]] QSize minimumSizeHint() const override;
    // The text as it is painted, possibly elided.
    [[nodiscard]] QString shownText() const;
    // Leaves the tool tip to the owner from now on.
    void keepToolTip() { keepsToolTip_ = true; }

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    bool keepsToolTip_ = false;
};

// A tool tip with exactly this text, even if it looks like markup.
[[nodiscard]] QString plainToolTip(const QString& text);

} // namespace kelvane
