#pragma once

#include <QDBusMessage>
#include <QObject>
#include <functional>

namespace kelvane::host {

// Whether the user prefers dark windows, as the desktop portal on the session bus reports now and at each
// change. Reports nothing without a portal; never blocks.
class SystemAppearance : public QObject {
    Q_OBJECT

public:
    explicit SystemAppearance(std::function<void(bool wantsDark)> handler);

private:
    Q_SLOT void settingChanged(const QDBusMessage& message);

    const std::function<void(bool wantsDark)> handler_;
};

} // namespace kelvane::host
