#pragma once

#include "Platform/Bundle.h"
#include "Platform/Desktop/Authorization/Authorization.h"

#include <QWidget>
#include <functional>
#include <string_view>

class QLabel;
class QToolButton;

namespace kelvane {

// The lock at the pane's lower edge: a button and a line that says what it does, whether somebody is being
// asked for a password, and why nobody could be.
class AuthorizationView : public QWidget {
    Q_OBJECT

public:
    struct State {
        bool isAuthorized = false;
        bool isAsking = false;
        AuthorizationProblem problem;
    };

    // The bundle outlives it.
    AuthorizationView(const Bundle& bundle, QWidget* parent);

    // Pictures of the two states; the view is complete without them.
    void setIcons(const QIcon& locked, const QIcon& unlocked);
    void showState(const State& state);
    // What a click does, whatever is shown.
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
