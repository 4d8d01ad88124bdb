#pragma once

#include <QCheckBox>

namespace kelvane {

// A check box whose text wraps to its width.
class WrappingCheckBox : public QCheckBox {
    Q_OBJECT

public:
    explicit WrappingCheckBox(QWidget* parent = nullptr);

    [[nodiscard]] QSize minimumSizeHint() const override;
    [[nodiscard]] bool hasHeightForWidth() const override { return true; }
    [[nodiscard]] int heightForWidth(int width) const override;

protected:
    void initStyleOption(QStyleOptionButton* option) const override;

private:
    [[nodiscard]] QSize sizeAround(const QSize& contents) const;
    [[nodiscard]] QString wrapped(int width) const;
};

} // namespace kelvane
