#pragma once

#include <QPlainTextEdit>
#include <cstdint>

namespace kelvane {

// The text field of a report. Holds a running count of its characters, in UTF-16 units with one per line
// break, which the receiver of `didProcessEditing` updates.
class HelpViewEmailTextView : public QPlainTextEdit {
    Q_OBJECT

public:
    explicit HelpViewEmailTextView(QWidget* parent = nullptr);

    [[nodiscard]] std::int32_t charsInTextField() const { return charsInTextField_; }
    // Negative counts become 0.
    void setCharsInTextField(std::int64_t count);
    // Removes the text in one edit, which cannot be undone.
    void resetString();
    // Every character as typed, with line feeds as line ends.
    [[nodiscard]] QString string() const;

Q_SIGNALS:
    // Emitted after each edit with the change in length.
    void didProcessEditing(int changeInLength);

private:
    void documentChanged();

    std::int32_t charsInTextField_ = 0;
    int length_ = 0;
};

} // namespace kelvane
