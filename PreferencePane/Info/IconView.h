#pragma once

#include <QIcon>
#include <QWidget>

namespace kelvane {

// Shows an image in its own size at the screen's resolution. Decorative: the texts beside it say the same.
class IconView : public QWidget {
    Q_OBJECT

public:
    using QWidget::QWidget;

    void setIcon(const QIcon& icon) {
        icon_ = icon;
        update();
    }
    [[nodiscard]] const QIcon& icon() const { return icon_; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QIcon icon_;
};

} // namespace kelvane
