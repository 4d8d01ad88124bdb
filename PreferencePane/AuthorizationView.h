#pragma once

#include "Platform/Bundle.h"
#include "Platform/Desktop/Authorization/Authorization.h"

#include <QWidget>
#include <functional>
#include <string_view>

class QLabel;
class QToolButton;

namespace kelvane {

// The lock at the pane's lower edge: a button, and a line that says what a click does, whether the user is
// being asked for a password, and why that was not possible.
class AuthorizationView : public QWidget {
    Q_OBJECT

public:
    struct State {
        bool isAuthorized = false;
        bool isAsking = false;
        AuthorizationProblem problem;
    };

    // `bundle` must outlive the view.
    AuthorizationView(const Bundle& bundle, QWidget* parent);

    // Icons of the two states; optional.
    void setIcons(const QIcon& locked, const QIcon& unlocked);
    void showState(const State& state);
    // Called on every click, whatever the lock shows.
    void setAction(std::function<void()> action) { action_ = std::move(action); }

private:
    [[nodiscard]] QString text(std::string_view key) const;
    [[nodiscard]] QString problemText(const AuthorizationProblem& problem) const;

    const Bundle& bundle_;
    QToolButton* const button_;
    QLabel* const explanation_;
    QIcon lockedIcon_;
    QIcon unlockedIcon_;
    std::function<void()> action_;
};

} // namespace kelvane
