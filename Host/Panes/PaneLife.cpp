#include "Host/Panes/PaneLife.h"

#include <QWidget>
#include <exception>

namespace kelvane::host {

PaneLife::~PaneLife() {
    unselect();
    if (pane_)
        pane_->mainView()->setParent(nullptr);
}

QWidget* PaneLife::view() {
    if (!pane_ && problem_.empty()) {
        PaneLoading loading = loadPane(description_.bundle, host_);
        pane_ = std::move(loading.pane);
        problem_ = std::move(loading.problem);
        if (pane_ && attempt([this] { pane_->awakeFromNib(); }))
            attempt([this] { pane_->mainViewDidLoad(); });
    }
    return pane() != nullptr ? pane_->mainView() : nullptr;
}

void PaneLife::select() {
    if (pane() == nullptr || isSelected_)
        return;
    isSelected_ = true;
    attempt([this] { pane_->didSelect(); });
}

void PaneLife::unselect() {
    if (!std::exchange(isSelected_, false))
        return;
    attempt([this] { pane_->willUnselect(); });
}

bool PaneLife::attempt(const std::function<void()>& step) {
    try {
        step();
        return true;
    } catch (const std::exception& error) {
        problem_ = std::string("It failed: ") + error.what() + '.';
        return false;
    }
}

} // namespace kelvane::host
