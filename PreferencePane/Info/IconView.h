#pragma once

#include <QIcon>
#include <QWidget>

namespace kelvane {

// Shows a picture as large as it is itself, as crisp as the screen allows. Decoration: what it shows is said
// by the texts beside it.
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
