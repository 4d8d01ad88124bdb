#pragma once

#include <QPlainTextEdit>
#include <cstdint>

namespace kelvane {

// Where the text of a report is written. Holds the running number of its characters, in UTF-16 units with one
// for each line break, which whoever hears of the edits keeps.
class HelpViewEmailTextView : public QPlainTextEdit {
    Q_OBJECT

public:
    explicit HelpViewEmailTextView(QWidget* parent = nullptr);

    [[nodiscard]] std::int32_t charsInTextField() const { return charsInTextField_; }
    // What is below 0 becomes 0.
    void setCharsInTextField(std::int64_t count);
    // One edit, which cannot be taken back.
    void resetString();
    // Every character as it was typed, lines ending with a line feed.
    [[nodiscard]] QString string() const;

Q_SIGNALS:
    // After each edit: how much longer the text is than before it.
    void didProcessEditing(int changeInLength);

private:
    void documentChanged();

    std::int32_t charsInTextField_ = 0;
    int length_ = 0;
};

} // namespace kelvane
