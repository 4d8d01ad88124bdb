#include "PreferencePane/AuthorizationView.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>

namespace kelvane {

AuthorizationView::AuthorizationView(const Bundle& bundle, QWidget* parent)
    : QWidget(parent),
      texts_([&bundle] {
          const auto text = [&bundle](std::string_view key) {
              return QString::fromStdString(bundle.localizedString(key, key));
          };
          return Texts{text("Click the lock to make changes."),
                       text("Click the lock to prevent further changes."),
                       text("Waiting for your password…"),
                       text("Lock"),
                       text("Unlock"),
                       text("Stop asking")};
      }()),
      button_(new QToolButton(this)),
      explanation_(new QLabel(this)) {
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
    showState({});
}

void AuthorizationView::setIcons(const QIcon& locked, const QIcon& unlocked) {
    lockedIcon_ = locked;
    unlockedIcon_ = unlocked;
    button_->setIcon(locked);
}

void AuthorizationView::showState(const State& state) {
    button_->setText(state.isAsking ? texts_.cancel : state.isAuthorized ? texts_.lock : texts_.unlock);
    button_->setIcon(state.isAuthorized ? unlockedIcon_ : lockedIcon_);
    QString line = state.isAuthorized ? texts_.unlocked : texts_.locked;
    if (state.isAsking)
        line = texts_.asking;
    else if (!state.problem.empty())
        line = QString::fromStdString(state.problem);
    explanation_->setText(line);
}

} // namespace kelvane
