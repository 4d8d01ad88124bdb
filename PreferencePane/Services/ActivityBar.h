#pragma once

#include <QBasicTimer>
#include <QProgressBar>

namespace kelvane {

// A progress bar with an animation while work is in progress: every few seconds a soft light moves along the
// finished part, or continuously along the whole bar when the total is unknown. Uses few frames per second,
// and none while hidden, because the window may be open all day.
class ActivityBar : public QProgressBar {
    Q_OBJECT

public:
    using QProgressBar::QProgressBar;

    void startAnimation();
    void stopAnimation();
    [[nodiscard]] bool isAnimating() const { return isAnimating_; }

    // While indeterminate, the value is kept and not shown.
    void setIndeterminate(bool isIndeterminate);
    [[nodiscard]] bool isIndeterminate() const { return isIndeterminate_; }

protected:
    void initStyleOption(QStyleOptionProgressBar* option) const override;
    void paintEvent(QPaintEvent* event) override;
    void timerEvent(QTimerEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void scheduleFrame();
    [[nodiscard]] int frameCount() const;

    bool isAnimating_ = false;
    bool isIndeterminate_ = false;
    int frame_ = 0; // 0: idle
    QBasicTimer timer_;
};

} // namespace kelvane
