#pragma once

#include <QString>

class QTextEdit;

namespace kelvane {

// The address of the support chat from its host and path, with every "%1$@" replaced by the server. Empty
// when either argument is.
[[nodiscard]] QString chatAddress(const QString& page, const QString& server);

// Puts the invitation with a link to the address into the view, in its current font. Clears the view when the
// address is empty.
void showChatInvitation(QTextEdit& view, const QString& invitation, const QString& address);

} // namespace kelvane
