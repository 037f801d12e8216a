#pragma once

#include <QString>
#include <QUrl>

// The entity tag the web server gives for a file, without its double
// quotes; a null string when the answer is no HTTP answer. Waits for the
// server: call it off the interface thread. A request error is logged, and
// a tag that came with the error answer is still returned.
QString HXTagChecksumForFileAtURL(const QUrl &url);
