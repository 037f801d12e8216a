#include "HXWebBrowser.h"

#include "HXSystemLog.h"

#include <QDesktopServices>

namespace HXWebBrowser {

bool isWebAddress(const QUrl &url)
{
    const QString scheme = url.scheme().toLower();
    return url.isValid() && !url.host().isEmpty() &&
           (scheme == QLatin1String("http") || scheme == QLatin1String("https"));
}

bool openWebAddress(const QUrl &url, const QString &what)
{
    if (!isWebAddress(url)) {
        HXSystemLog::write(QStringLiteral("Not opening %1: %2 is not a web address")
                               .arg(what, url.toDisplayString()));
        return false;
    }
    if (QDesktopServices::openUrl(url))
        return true;
    HXSystemLog::write(QStringLiteral("Could not open %1 %2").arg(what, url.toDisplayString()));
    return false;
}

} // namespace HXWebBrowser
