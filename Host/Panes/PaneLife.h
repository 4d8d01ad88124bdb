#pragma once

#include "Host/Panes/PaneBundles.h"
#include "Host/Panes/PaneLoading.h"

#include <functional>

class QWidget;

namespace kelvane::host {

// Drives one pane through the life cycle that `Pane` describes. A step that fails ends the cycle, and
// `problem` says why. Main thread only.
class PaneLife {
public:
    PaneLife(PaneDescription description, PaneHost& host)
        : description_(std::move(description)), host_(host) {}
    ~PaneLife();
    PaneLife(const PaneLife&) = delete;
    PaneLife& operator=(const PaneLife&) = delete;

    [[nodiscard]] const PaneDescription& description() const { return description_; }

    // Loads the pane at the first call. Null when the pane cannot be shown.
    [[nodiscard]] QWidget* view();
    // Both do nothing when the pane is already in that state; `select` also before `view` has loaded the pane
    // and after a step has failed.
    void select();
    void unselect();

    [[nodiscard]] bool isSelected() const { return isSelected_; }
    // Null before the pane is loaded, and after a step has failed.
    [[nodiscard]] Pane* pane() const { return problem_.empty() ? pane_.get() : nullptr; }
    [[nodiscard]] const std::string& problem() const { return problem_; }

private:
    bool attempt(const std::function<void()>& step);

    const PaneDescription description_;
    PaneHost& host_;
    std::unique_ptr<Pane> pane_;
    bool isSelected_ = false;
    std::string problem_;
};

} // namespace kelvane::host
