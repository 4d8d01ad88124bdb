#pragma once

#include <QBasicTimer>
#include <QProgressBar>

namespace kelvane {

// A progress bar that shows whether there is work going on: every few seconds a soft light runs along what is
// done, or all the time along the whole bar while nobody knows how much that is. Few frames a second, and
// none while it cannot be seen: a window that stands open all day must cost next to nothing.
class ActivityBar : public QProgressBar {
    Q_OBJECT

public:
    using QProgressBar::QProgressBar;

    void startAnimation();
    void stopAnimation();
    [[nodiscard]] bool isAnimating() const { return isAnimating_; }

    // While it is so, the value is kept and not shown.
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
    int frame_ = 0; // 0: resting
    QBasicTimer timer_;
};

} // namespace kelvane
