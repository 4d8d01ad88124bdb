#include "PreferencePane/Status/WrappingCheckBox.h"

#include <QStringList>
#include <QStyleOptionButton>

namespace kelvane {
namespace {

constexpr int fewestCharacters = 20;

} // namespace

WrappingCheckBox::WrappingCheckBox(QWidget* parent) : QCheckBox(parent) {
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Minimum, QSizePolicy::CheckBox);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

// Qualified calls avoid a recursion: the check box's own size hint asks for the wrapped text, which calls
// this.
QSize WrappingCheckBox::sizeAround(const QSize& contents) const {
    QStyleOptionButton option;
    QCheckBox::initStyleOption(&option);
    return style()->sizeFromContents(QStyle::CT_CheckBox, &option, contents, this);
}

QSize WrappingCheckBox::minimumSizeHint() const {
    const int fewest = fontMetrics().averageCharWidth() * fewestCharacters;
    const QSize whole = sizeHint();
    return {std::min(sizeAround({fewest, 0}).width(), whole.width()), whole.height()};
}

int WrappingCheckBox::heightForWidth(int width) const {
    const QRect text = style()->itemTextRect(fontMetrics(), {}, Qt::TextShowMnemonic, true, wrapped(width));
    return sizeAround(text.size()).height();
}

void WrappingCheckBox::initStyleOption(QStyleOptionButton* option) const {
    QCheckBox::initStyleOption(option);
    option->text = wrapped(width());
}

QString WrappingCheckBox::wrapped(int width) const {
    const int room = width - sizeAround({}).width();
    QString lines;
    QString line;
    for (const QString& word : text().split(' ')) {
        const QString longer = line.isEmpty() ? word : line + ' ' + word;
        if (!line.isEmpty() && fontMetrics().horizontalAdvance(longer) > room) {
            lines += line + '\n';
            line = word;
        } else {
            line = longer;
        }
    }
    return lines + line;
}

} // namespace kelvane
