#pragma once

#include <QAbstractButton>
#include <cstddef>
#include <utility>

namespace kelvane {

// Connects each button's click to its member function of `target` until `context` is destroyed, which must
// not be after `target`.
template <class Target, std::size_t count>
void connectButtons(Target& target, const QObject& context,
                    const std::pair<QAbstractButton*, void (Target::*)()> (&actions)[count]) {
    for (const auto& [button, action] : actions)
        QObject::connect(button, &QAbstractButton::clicked, &context,
                         [&target, action = action] { (target.*action)(); });
}

} // namespace kelvane
