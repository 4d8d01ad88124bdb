#include "PreferencePane/AuthorizationView.h"

#include "Foundation/Format.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>

namespace kelvane {
namespace {

using Problem = AuthorizationProblem::Kind;

struct ProblemText {
    Problem kind;
    std::string_view text; // key and English text; "%@" is what the authority said
};
constexpr ProblemText problemTexts[] = {
    {Problem::NoProperAnswer,
     "The authorization service does not answer as it should, and changes stay locked. Ask the administrator "
     "of this computer. (%@)"},
    {Problem::NoAgent,
     "Nobody could ask you for a password: no authentication agent is running in this session. Start one, or "
     "log in to a desktop session, and try again."},
    {Problem::Refused, "The authorization was refused. Try again, or ask an administrator of this computer."},
    {Problem::RefusedByChoice, "Every unlocking is refused, as was asked for."},
    {Problem::NotRevoked, "The right could not be given back: %@"},
};

} // namespace

AuthorizationView::AuthorizationView(const Bundle& bundle, QWidget* parent)
    : QWidget(parent), bundle_(bundle), button_(new QToolButton(this)), explanation_(new QLabel(this)) {
    button_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    button_->setFocusPolicy(Qt::StrongFocus);
    explanation_->setWordWrap(true);
    explanation_->setTextFormat(Qt::PlainText);
    auto* const layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(button_);
    layout->addWidget(explanation_, 1);
    connect(button_, &QToolButton::clicked, this, [this] {
        if (action_)
            action_();
    });
    explanation_->setAccessibleDescription(text("What the lock does"));
    showState({});
}

QString AuthorizationView::text(std::string_view key) const {
    return QString::fromStdString(bundle_.localizedString(key, key));
}

QString AuthorizationView::problemText(const AuthorizationProblem& problem) const {
    for (const auto& [kind, text] : problemTexts) {
        if (kind == problem.kind)
            return QString::fromStdString(
                formatTranslated(bundle_.localizedString(text, text), problem.detail));
    }
    return {};
}

void AuthorizationView::setIcons(const QIcon& locked, const QIcon& unlocked) {
    lockedIcon_ = locked;
    unlockedIcon_ = unlocked;
    button_->setIcon(locked);
}

void AuthorizationView::showState(const State& state) {
    button_->setIcon(state.isAuthorized ? unlockedIcon_ : lockedIcon_);
    QString line = state.isAuthorized ? text("Click the lock to prevent further changes.")
                                      : text("Click the lock to make changes.");
    QString action = state.isAuthorized ? text("Lock") : text("Unlock");
    if (state.isAsking) {
        line = text("Waiting for your password…");
        action = text("Stop asking");
    } else if (state.problem) {
        line = problemText(state.problem);
    }
    button_->setText(action);
    explanation_->setText(line);
}

} // namespace kelvane
