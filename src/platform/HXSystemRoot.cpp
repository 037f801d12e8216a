#include "HXSystemRoot.h"

#include <QDir>

QString HXSystemRoot::root()
{
    QString r = qEnvironmentVariable("ORVEX_SYSROOT");
    while (r.endsWith(QLatin1Char('/')))
        r.chop(1);
    return r;
}

QString HXSystemRoot::map(const QString &absolutePath)
{
    const QString r = root();
    if (r.isEmpty())
        return absolutePath;
    return r + QDir::cleanPath(absolutePath);
}
