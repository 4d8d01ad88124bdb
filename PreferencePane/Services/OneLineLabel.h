#pragma once

#include <QLabel>

namespace kelvane {

// A label of one line that gives way when there is no room: the middle of its text is left out, because the
// end of a file's name says as much as its beginning, and a tool tip shows the whole. `text` is always the
// whole of it, and plain.
class OneLineLabel : public QLabel {
    Q_OBJECT

public:
    explicit OneLineLabel(QWidget* parent = nullptr);

    [[nodiscard]] QSize minimumSizeHint() const override;
    // The text as it is painted now.
    [[nodiscard]] QString shownText() const;
    // From now on the tool tip is its owner's.
    void keepToolTip() { keepsToolTip_ = true; }

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    bool keepsToolTip_ = false;
};

// A tool tip that says exactly the text, be it one that looks like markup.
[[nodiscard]] QString plainToolTip(const QString& text);

} // namespace kelvane
