#include "PreferencePane/Help/ChatInvitation.h"

#include <QTextCharFormat>
#include <QTextCursor>
#include <QTextEdit>

namespace kelvane {

QString chatAddress(const QString& page, const QString& server) {
    constexpr int longestServer = 1024; // longer text is not a server name, and slow to lay out
    if (page.isEmpty() || server.isEmpty() || server.size() > longestServer)
        return {};
    return QString("http://" + page).replace("%1$@", server);
}

void showChatInvitation(QTextEdit& view, const QString& invitation, const QString& address) {
    QTextCharFormat plain;
    plain.setFont(QTextCursor(view.document()).charFormat().font());
    view.clear();
    if (address.isEmpty())
        return;
    QTextCursor end(view.document());
    end.insertText(invitation, plain);
    QTextCharFormat link = plain;
    link.setAnchor(true);
    link.setAnchorHref(address);
    link.setForeground(view.palette().link()); // the link colour that is readable on this background
    link.setFontUnderline(true);
    end.insertText(address, link);
}

} // namespace kelvane
