#pragma once

#include <QString>

class QTextEdit;

namespace kelvane {

// The address of the support's chat from its host and path, in which every "%1$@" stands for the server.
// Empty where one of them is.
[[nodiscard]] QString chatAddress(const QString& page, const QString& server);

// Puts the invitation with a link to the address into the view, in the font that its text has now. Nothing is
// left in it without an address.
void showChatInvitation(QTextEdit& view, const QString& invitation, const QString& address);

} // namespace kelvane
