#pragma once

#include <QDBusMessage>
#include <QObject>
#include <functional>

namespace kelvane::host {

// Whether the user wants dark windows, as the desktop's portal says on the session bus, now and whenever that
// changes. Says nothing where there is no portal; waits for nothing.
class SystemAppearance : public QObject {
    Q_OBJECT

public:
    explicit SystemAppearance(std::function<void(bool wantsDark)> handler);

private:
    Q_SLOT void settingChanged(const QDBusMessage& message);

    const std::function<void(bool wantsDark)> handler_;
};

} // namespace kelvane::host
