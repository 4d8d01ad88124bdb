#include "Host/MessagePage.h"

#include <QIcon>
#include <QVBoxLayout>

namespace kelvane::host {
namespace {

constexpr int pictureSize = 56;
constexpr int textWidth = 440;
constexpr int gap = 12;
constexpr double titleScale = 1.25;

// Plain text: a path or an error message may contain markup.
QLabel* centredText(QWidget* parent) {
    auto* const label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    label->setAlignment(Qt::AlignCenter);
    label->setWordWrap(true);
    label->setFixedWidth(textWidth);
    return label;
}

} // namespace

MessagePage::MessagePage(QWidget* parent)
    : QWidget(parent), title_(centredText(this)), problem_(centredText(this)), path_(centredText(this)) {
    auto* const picture = new QLabel(this);
    picture->setPixmap(
        QIcon(missingPanePicture).pixmap(QSize(pictureSize, pictureSize), picture->devicePixelRatioF()));
    QFont font = title_->font();
    font.setPointSizeF(font.pointSizeF() * titleScale);
    font.setWeight(QFont::DemiBold);
    title_->setFont(font);
    path_->setForegroundRole(QPalette::PlaceholderText);
    auto* const column = new QVBoxLayout(this);
    column->setSpacing(gap);
    column->addStretch(2);
    for (QWidget* const widget : {static_cast<QWidget*>(picture), static_cast<QWidget*>(title_),
                                  static_cast<QWidget*>(problem_), static_cast<QWidget*>(path_)})
        column->addWidget(widget, 0, Qt::AlignHCenter);
    column->addStretch(3);
}

void MessagePage::show(const QString& title, const QString& problem, const QString& path) {
    title_->setText(title);
    problem_->setText(problem);
    // Lets a path wrap at its separators.
    path_->setText(QString(path).replace('/', QStringLiteral("/\u200b")));
    path_->setAccessibleName(path);
}

} // namespace kelvane::host
