#include "PreferencePane/Help/HelpViewEmailTextView.h"

#include <QTextCursor>
#include <QTextDocument>
#include <algorithm>
#include <limits>

namespace kelvane {

HelpViewEmailTextView::HelpViewEmailTextView(QWidget* parent) : QPlainTextEdit(parent) {
    setTabChangesFocus(true);
    connect(document(), &QTextDocument::contentsChange, this, &HelpViewEmailTextView::documentChanged);
}

void HelpViewEmailTextView::setCharsInTextField(std::int64_t count) {
    constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max();
    charsInTextField_ = static_cast<std::int32_t>(std::clamp<std::int64_t>(count, 0, most));
}

void HelpViewEmailTextView::resetString() {
    QTextCursor whole(document());
    whole.beginEditBlock();
    whole.select(QTextCursor::Document);
    whole.removeSelectedText();
    whole.endEditBlock();
    document()->clearUndoRedoStacks();
}

// Reads the raw text, because `toPlainText` replaces no-break spaces.
QString HelpViewEmailTextView::string() const {
    return document()
        ->toRawText()
        .replace(QChar::ParagraphSeparator, '\n')
        .replace(QChar::LineSeparator, '\n');
}

// Uses the document's length, because the numbers in the signal may include the end of the last paragraph.
void HelpViewEmailTextView::documentChanged() {
    const int before = std::exchange(length_, document()->characterCount() - 1);
    Q_EMIT didProcessEditing(length_ - before);
}

} // namespace kelvane
