#pragma once

#include <QAbstractButton>
#include <cstddef>
#include <utility>

namespace kelvane {

// Has a click on each button call its operation of `target`, until `context` goes, which goes no later than
// `target` does.
template <class Target, std::size_t count>
void connectButtons(Target& target, const QObject& context,
                    const std::pair<QAbstractButton*, void (Target::*)()> (&actions)[count]) {
    for (const auto& [button, action] : actions)
        QObject::connect(button, &QAbstractButton::clicked, &context,
                         [&target, action = action] { (target.*action)(); });
}

} // namespace kelvane
