#pragma once

#include <QUrl>

// The user's web browser. Addresses handed to it come from the network (an
// update server's reply, a link in a downloaded page), so only web
// addresses go out: a file: or other address would let whoever answers open
// local files or start programs through the desktop's handlers.
namespace HXWebBrowser {

// True for an http or https address with a host.
bool isWebAddress(const QUrl &url);
// Opens a web address in the browser; anything else is logged and left
// alone. `what` names the address in the log ("the update page").
bool openWebAddress(const QUrl &url, const QString &what);

} // namespace HXWebBrowser
